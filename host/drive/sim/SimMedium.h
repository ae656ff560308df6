#pragma once

#include <cstdint>
#include <memory>

#include "host/drive/sim/SimPages.h"

namespace corvane::host {

/// The sectors of a simulated drive, sparse: memory is taken only for neighbourhoods that were written.
///
/// A sector that was never written is zero, or has a content that follows from its LBA alone, and that nobody takes for
/// written data: its first byte is far above the sector pools' numbers.
class SimMedium {
 public:
  /// First byte of a sector that nobody wrote.
  static constexpr uint8_t nobodysMark = 0x9A;

  enum class Unwritten : uint8_t { pattern, zeros };

  explicit SimMedium(uint32_t sectorBytes, Unwritten unwritten = Unwritten::pattern)
      : sectorBytes_(sectorBytes), unwrittenAs_(unwritten), pages_(pageBlocks * sectorBytes) {}

  uint32_t sectorBytes() const { return sectorBytes_; }

  /// Copies `blocks` sectors that follow each other.
  void read(uint64_t lba, uint64_t blocks, uint8_t* out);
  void write(uint64_t lba, uint64_t blocks, const uint8_t* data);
  void zero(uint64_t lba, uint64_t blocks);

  /// One sector for reading; valid until the next operation.
  const uint8_t* sector(uint64_t lba);

  /// Memory that the written neighbourhoods take.
  uint64_t allocatedBytes() const { return pages_.count() * pageBlocks * sectorBytes_; }

 private:
  static constexpr uint64_t pageBlocks = 64;

  uint8_t* make(uint64_t page);
  void fillUnwritten(uint64_t lba, uint8_t* out) const;

  uint32_t sectorBytes_;
  Unwritten unwrittenAs_;
  SimPages pages_;
  std::unique_ptr<uint8_t[]> unwritten_;  ///< one sector
};

}  // namespace corvane::host
