#pragma once

#include <cstdint>
#include <memory>

#include "vdl/FreeTagQueue.h"

namespace corvane::host {

/// The queue tags of one drive behind `vdl::FreeTagQueue`: free tags first-in first-out, outstanding tags with a
/// generation that tells a late completion from one of the command that holds the tag now.
///
/// Used only on the drive's thread.
class TagPool {
 public:
  static constexpr uint32_t none = 0xFFFFFFFF;
  static constexpr uint32_t maxTags = 1024;

  /// @param tags 1 to maxTags; throws std::invalid_argument otherwise
  explicit TagPool(uint32_t tags);
  ~TagPool();
  TagPool(const TagPool&) = delete;
  TagPool& operator=(const TagPool&) = delete;

  /// The tag at the front of the free queue, or `none`.
  uint32_t front() const;
  /// Takes the tag at the front and marks it outstanding; `none` when there is none.
  uint32_t take();
  /// Frees an outstanding tag, in the act that publishes its completion.
  void release(uint32_t tag);

  bool isOutstanding(uint32_t tag) const;
  /// Raised each time the tag is taken back by an agent, so that the command that held it is an orphan.
  uint32_t generation(uint32_t tag) const;
  uint32_t outstanding() const;
  uint32_t size() const;

  vdl::FreeTagQueue& platform();

 private:
  std::unique_ptr<vdl::FreeTagQueue::Impl> state_;
  vdl::FreeTagQueue platform_;
};

}  // namespace corvane::host
