#pragma once

#include <cstdint>
#include <map>
#include <vector>

#include "Event.h"

namespace refmodel {

using Bytes = std::vector<uint8_t>;

/// What a block holds, said by what became of it.
struct Content {
  enum class Is : uint8_t {
    before,   ///< what was there before the test
    written,  ///< what a command wrote there
    torn,     ///< the beginning of what a command wrote, and behind it what was there before the test
    flipped,  ///< what a command wrote, with one wrong bit
    foreign,  ///< the data of another block
  };
  Is is = Is::before;
  uint32_t command = 0;  ///< that wrote it
  uint32_t at = 0;       ///< bytes that arrived; the byte with the wrong bit

  bool operator==(const Content&) const = default;
};

/// The bytes of blocks, made from the pool of sectors by the rules of the format and by nobody's code but this.
class Medium {
 public:
  /// @param pool the agent's sectors, one behind the other
  Medium(Bytes pool, uint32_t sector) : pool_(std::move(pool)), sector_(sector) {}

  uint32_t sector() const { return sector_; }
  uint32_t buckets() const { return static_cast<uint32_t>(pool_.size() / sector_); }

  Bytes before(uint64_t lba) const;
  uint64_t hashBefore(uint64_t lba) const;
  Bytes foreign(uint64_t lba) const;
  /// A sector of the pool or the zero block, stamped if `embed` says so; empty when the number names no content.
  Bytes written(uint32_t number, const vdl::EmbedData& embed) const;

 private:
  Bytes pool_;
  uint32_t sector_;
  mutable std::map<uint64_t, uint64_t> hashesBefore_;  ///< made when first asked for
};

/// What a block says of itself.
vdl::ObserveData observationOf(const Bytes& block);

/// The hash that the table keeps of a block.
uint64_t hashOf(const Bytes& block);

}  // namespace refmodel
