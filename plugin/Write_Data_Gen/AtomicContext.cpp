#include "AtomicContext.h"

#include <deque>

#include "vdl/Status.h"

namespace vdl {

AtomicContext::Node::~Node() {
  while (history != nullptr) {
    Event* older = history->next;
    delete history;
    history = older;
  }
}

void AtomicContext::copyHistory(uint64_t lba, const Event* first) {
  if (first == nullptr) {
    return;
  }
  auto node = std::make_shared<Node>();
  Event** tail = &node->history;
  for (const Event* event = first; event != nullptr; event = event->next) {
    *tail = new Event(*event);
    (*tail)->next = nullptr;
    tail = &(*tail)->next;
  }
  nodes_[lba] = std::move(node);
}

PeekResult AtomicContext::peek(uint64_t lba) const {
  const auto node = nodes_.find(lba);
  if (node == nodes_.end()) {
    PeekResult missing;
    missing.status = status::notInContext;
    return missing;
  }
  return Event::peek(node->second->history, node->second->observed, false);
}

int32_t AtomicContext::observe(uint64_t lba, ObserveData observed, LazyHasher& hasher) const {
  const auto found = nodes_.find(lba);
  if (found == nodes_.end()) {
    return status::notInContext;
  }
  Node& node = *found->second;
  for (const Event* event = node.history; event != nullptr; event = event->next) {
    if (observed == *event) {
      node.observed = event;
      return status::ok;
    }
    if (!event->isTransparent()) {
      break;
    }
  }

  const uint64_t hash = hasher();
  for (const Event* event = node.history; event != nullptr; event = event->next) {
    if (event->hash == hash) {
      node.observed = event;
      return status::ok;
    }
    if (!event->isTransparent()) {
      break;
    }
  }
  return status::notFound;
}

namespace {

/// One direction of the walk: the atomic writes that are open at the current position.
class OpenSegments {
 public:
  /// @param reach blocks of the event's segment that lie ahead in this direction
  /// @return false when an older write shows inside a segment that was seen as new
  bool pass(uint32_t position, const Event& event, uint32_t reach) {
    while (!stack_.empty() && stack_.back().last < position) {
      stack_.pop_back();
    }
    if (event.type != EventType::Write && event.type != EventType::Atomic) {
      return true;
    }
    const uint64_t top = stack_.empty() ? 0 : stack_.back().cmd_id;
    if (!stack_.empty() && top > event.cmd_id) {
      return false;
    }
    if (event.type == EventType::Atomic && event.cmd_id != top) {
      const uint32_t last = position + reach;
      if (last > position) {
        stack_.push_back({event.cmd_id, last});
      }
    }
    return true;
  }

 private:
  std::deque<AtomicContext::Segment> stack_;
};

}  // namespace

bool AtomicContext::atomicValid(uint64_t& failedLba) const {
  OpenSegments forward;
  uint32_t position = 0;
  for (const auto& [lba, node] : nodes_) {
    const Event* event = node->observed;
    if (event != nullptr && !forward.pass(position, *event, event->segment.length - event->segment.offset - 1)) {
      failedLba = lba;
      return false;
    }
    ++position;
  }

  OpenSegments backward;
  position = 0;
  for (auto entry = nodes_.rbegin(); entry != nodes_.rend(); ++entry) {
    const Event* event = entry->second->observed;
    if (event != nullptr && !backward.pass(position, *event, event->segment.offset)) {
      failedLba = entry->first;
      return false;
    }
    ++position;
  }
  return true;
}

}  // namespace vdl
