#include "AtomicContext.h"

#include <algorithm>

#include "vdl/Status.h"

namespace vdl {

namespace {

bool isBelow(const AtomicContext::Node& node, uint64_t lba) { return node.lba < lba; }

}  // namespace

void AtomicContext::copyHistory(uint64_t lba, const Event* first) {
  if (first == nullptr) {
    return;
  }
  if (state_ == nullptr) {
    state_ = std::make_shared<State>();
  }
  Node node;
  node.lba = lba;
  Event** tail = &node.history;
  for (const Event* event = first; event != nullptr; event = event->next) {
    *tail = state_->events.copy(*event);
    tail = &(*tail)->next;
  }
  std::vector<Node>& nodes = state_->nodes;
  const auto place = std::lower_bound(nodes.begin(), nodes.end(), lba, isBelow);
  if (place != nodes.end() && place->lba == lba) {
    *place = node;
  } else {
    nodes.insert(place, node);
  }
}

void AtomicContext::clear() {
  if (state_.use_count() > 1) {
    state_.reset();
  } else if (state_ != nullptr) {
    state_->nodes.clear();
    state_->events.clear();
  }
}

AtomicContext::Node* AtomicContext::find(uint64_t lba) const {
  if (state_ == nullptr) {
    return nullptr;
  }
  std::vector<Node>& nodes = state_->nodes;
  const auto node = std::lower_bound(nodes.begin(), nodes.end(), lba, isBelow);
  return node == nodes.end() || node->lba != lba ? nullptr : &*node;
}

PeekResult AtomicContext::peek(uint64_t lba) const {
  const Node* node = find(lba);
  if (node == nullptr) {
    PeekResult missing;
    missing.status = status::notInContext;
    return missing;
  }
  return Event::peek(node->history, node->observed, false);
}

int32_t AtomicContext::observe(uint64_t lba, ObserveData observed, LazyHasher& hasher) const {
  Node* found = find(lba);
  if (found == nullptr) {
    return status::notInContext;
  }
  Node& node = *found;
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
  std::vector<AtomicContext::Segment> stack_;
};

}  // namespace

bool AtomicContext::atomicValid(uint64_t& failedLba) const {
  if (state_ == nullptr) {
    return true;
  }
  const std::vector<Node>& nodes = state_->nodes;
  OpenSegments forward;
  uint32_t position = 0;
  for (const Node& node : nodes) {
    const Event* event = node.observed;
    if (event != nullptr && !forward.pass(position, *event, event->segment.length - event->segment.offset - 1)) {
      failedLba = node.lba;
      return false;
    }
    ++position;
  }

  OpenSegments backward;
  position = 0;
  for (auto node = nodes.rbegin(); node != nodes.rend(); ++node) {
    const Event* event = node->observed;
    if (event != nullptr && !backward.pass(position, *event, event->segment.offset)) {
      failedLba = node->lba;
      return false;
    }
    ++position;
  }
  return true;
}

}  // namespace vdl
