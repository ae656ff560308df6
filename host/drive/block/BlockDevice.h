#pragma once

#include <cstdint>
#include <string>

#include "host/drive/Overwriting.h"
#include "host/drive/block/AtomicUnits.h"
#include "host/drive/block/BlockTraits.h"

namespace corvane::host {

/// A block device, open for reading and writing past the page cache, and for nobody else who asks to have it alone:
/// mounting it and opening it for a second test fail while the object lives.
///
/// Throws DriveError, naming the path, the cause and the remedy, for what does not exist, is no block device, is
/// read-only or may not be opened, has no medium, blocks that cannot be tested, or zones that are written at their
/// pointers only, and for a device that is in use, unless it may be overwritten nevertheless.
class BlockDevice {
 public:
  BlockDevice(std::string path, Overwriting overwriting);
  ~BlockDevice();
  BlockDevice(const BlockDevice&) = delete;
  BlockDevice& operator=(const BlockDevice&) = delete;

  int fd() const { return fd_; }
  const std::string& path() const { return path_; }
  const BlockTraits& traits() const { return traits_; }
  const AtomicUnits& atomicUnits() const { return atomicUnits_; }
  /// Somebody else uses it too: it could not be had alone.
  bool shared() const { return shared_; }

  uint64_t blocks() const { return blocks_; }
  uint32_t blockSize() const { return blockSize_; }
  /// A physical block is 2^exponent logical ones.
  uint32_t physicalExponent() const { return physicalExponent_; }
  /// What the memory of a transfer must be aligned to, bytes.
  uint64_t memoryAlignment() const { return memoryAlignment_; }

  /// Its size at this moment, in blocks; 0 when it is gone.
  uint64_t blocksNow() const;

 private:
  void checkKind();
  void open(Overwriting overwriting);
  [[noreturn]] void refuseOpening(int error, Overwriting overwriting) const;
  void readSizes(Overwriting overwriting);
  void settleAlignment();
  [[noreturn]] void fail(const std::string& fault) const;

  std::string path_;
  int fd_ = -1;
  bool shared_ = false;
  BlockTraits traits_;
  AtomicUnits atomicUnits_;
  uint64_t blocks_ = 0;
  uint32_t blockSize_ = 512;
  uint32_t physicalExponent_ = 0;
  uint64_t memoryAlignment_ = 512;
};

}  // namespace corvane::host
