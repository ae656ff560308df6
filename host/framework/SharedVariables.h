#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

#include "host/framework/TaggedBufferImpl.h"
#include "vdl/Buffer.h"
#include "vdl/LBARangeQueue.h"
#include "vdl/TaggedBuffer.h"

namespace corvane::host {

/// The buffers behind one `vdl::TaggedBuffer`: for each tag a view of bytes that somebody else owns.
///
/// Used only on the drive's thread.
class TaggedViews {
 public:
  explicit TaggedViews(uint32_t tags);
  ~TaggedViews();
  TaggedViews(const TaggedViews&) = delete;
  TaggedViews& operator=(const TaggedViews&) = delete;

  /// Lets `getData(tag)` answer these bytes until the next `set` or `clear` of the tag, or an `unlock`.
  ///
  /// @param bytes the exact size that agents see, not the capacity
  ///
  /// Inline, as a host does it several times for each command.
  void set(uint32_t tag, uint8_t* data, uint64_t bytes) { views_->views.at(tag) = {data, bytes}; }
  void clear(uint32_t tag) { views_->views.at(tag) = {}; }

  vdl::TaggedBuffer& platform();

 private:
  vdl::TaggedBuffer::Impl* views_;
  vdl::TaggedBuffer platform_;
};

/// The variables that the agents of one drive's test share by name.
///
/// A variable comes to life on its first use from either side: an agent's `map…`, or one of the accessors here. It
/// keeps its address until the object is destroyed. A name has one kind: an accessor of another kind throws
/// `std::logic_error`, an agent's map of another kind stores a status in its error cell.
class SharedVariables {
 public:
  /// @param tags number of queue tags, the size of every tagged buffer
  explicit SharedVariables(uint32_t tags);
  ~SharedVariables();
  SharedVariables(const SharedVariables&) = delete;
  SharedVariables& operator=(const SharedVariables&) = delete;

  uint32_t& u32(std::string_view name, uint32_t initial = 0);
  uint64_t& u64(std::string_view name, uint64_t initial = 0);
  bool& flag(std::string_view name, bool initial = false);
  vdl::Buffer& buffer(std::string_view name);
  TaggedViews& tagged(std::string_view name);
  vdl::LBARangeQueue& ranges(std::string_view name);

  /// Declares how many agents write a variable (`DriveThread::countVarWriters`); 0 until declared.
  void setWriters(std::string_view name, uint32_t count);
  uint32_t writers(std::string_view name) const;

  struct Store;
  Store& store() { return *store_; }

 private:
  std::unique_ptr<Store> store_;
};

}  // namespace corvane::host
