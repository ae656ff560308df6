#pragma once

#include <array>
#include <cstddef>
#include <memory>
#include <vector>

#include "Event.h"

namespace vdl {

/// Events that are made one by one and forgotten together. They stay where they are until then, and their memory stays
/// for the next ones.
class EventArena {
 public:
  /// A copy of an event, without a next one. Throws std::bad_alloc without memory.
  Event* copy(const Event& event) {
    if (used_ == chunks_.size() * chunkEvents) {
      chunks_.push_back(std::make_unique<Chunk>());
    }
    Event* made = &(*chunks_[used_ / chunkEvents])[used_ % chunkEvents];
    *made = event;
    made->next = nullptr;
    ++used_;
    return made;
  }

  void clear() { used_ = 0; }

 private:
  static constexpr std::size_t chunkEvents = 32;
  using Chunk = std::array<Event, chunkEvents>;

  std::vector<std::unique_ptr<Chunk>> chunks_;
  std::size_t used_ = 0;
};

}  // namespace vdl
