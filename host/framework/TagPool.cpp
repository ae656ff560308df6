#include "host/framework/TagPool.h"

#include <array>
#include <cassert>
#include <stdexcept>
#include <string>

#include "vdl/FreeTagQueue.h"

namespace {

enum class TagState : uint8_t { free, outstanding, takenBack };

}  // namespace

/// A ring of free tags, and for each tag who has it.
struct vdl::FreeTagQueue::Impl {
  static constexpr uint32_t capacity = corvane::host::TagPool::maxTags;

  explicit Impl(uint32_t count) : tags(count), freeCount(count) {
    for (uint32_t tag = 0; tag < count; ++tag) {
      ring[tag] = tag;
    }
  }

  uint32_t front() const { return freeCount == 0 ? corvane::host::TagPool::none : ring[head]; }

  void pushBack(uint32_t tag) {
    const uint32_t at = head + freeCount;
    ring[at < tags ? at : at - tags] = tag;
    ++freeCount;
    state[tag] = TagState::free;
  }

  uint32_t popFront() {
    const uint32_t tag = ring[head];
    head = head + 1 < tags ? head + 1 : 0;
    --freeCount;
    return tag;
  }

  uint32_t tags;
  uint32_t head = 0;
  uint32_t freeCount;
  uint32_t outstanding = 0;
  std::array<uint32_t, capacity> ring{};
  std::array<TagState, capacity> state{};
  std::array<uint32_t, capacity> generation{};
};

namespace vdl {

uint32_t FreeTagQueue::peekNextFreeTag() { return impl->front(); }

int32_t FreeTagQueue::getNotFreeTag(uint32_t, bool) {
  for (uint32_t tag = 0; tag < impl->tags && impl->outstanding != 0; ++tag) {
    if (impl->state[tag] == TagState::outstanding) {
      impl->state[tag] = TagState::takenBack;
      --impl->outstanding;
      ++impl->generation[tag];
      return static_cast<int32_t>(tag);
    }
  }
  return -1;
}

void FreeTagQueue::pushFreeTag(uint32_t tag, uint32_t) {
  if (tag < impl->tags && impl->state[tag] == TagState::takenBack) {
    impl->pushBack(tag);
  }
}

}  // namespace vdl

namespace corvane::host {

namespace {

uint32_t checkedTags(uint32_t tags) {
  if (tags == 0 || tags > TagPool::maxTags) {
    throw std::invalid_argument("queue depth " + std::to_string(tags) + " is outside 1 to 1024");
  }
  return tags;
}

}  // namespace

TagPool::TagPool(uint32_t tags) : state_(std::make_unique<vdl::FreeTagQueue::Impl>(checkedTags(tags))) {
  platform_.impl = state_.get();
}

TagPool::~TagPool() = default;

uint32_t TagPool::front() const { return state_->front(); }

uint32_t TagPool::take() {
  if (state_->freeCount == 0) {
    return none;
  }
  const uint32_t tag = state_->popFront();
  state_->state[tag] = TagState::outstanding;
  ++state_->outstanding;
  return tag;
}

void TagPool::release(uint32_t tag) {
  assert(isOutstanding(tag));
  --state_->outstanding;
  state_->pushBack(tag);
}

bool TagPool::isOutstanding(uint32_t tag) const {
  return tag < state_->tags && state_->state[tag] == TagState::outstanding;
}

uint32_t TagPool::generation(uint32_t tag) const { return state_->generation.at(tag); }

uint32_t TagPool::outstanding() const { return state_->outstanding; }

uint32_t TagPool::size() const { return state_->tags; }

vdl::FreeTagQueue& TagPool::platform() { return platform_; }

}  // namespace corvane::host
