#pragma once

#include <cstdint>
#include <cstring>
#include <span>
#include <vector>

namespace corvane::host {

/// Blocks that follow each other, and their content.
class Sectors {
 public:
  Sectors() = default;
  Sectors(uint64_t first, uint64_t blocks, uint32_t sectorBytes)
      : first_(first), sectorBytes_(sectorBytes), bytes_(blocks * sectorBytes) {}

  uint64_t first() const { return first_; }
  uint64_t blocks() const { return sectorBytes_ == 0 ? 0 : bytes_.size() / sectorBytes_; }
  uint64_t end() const { return first_ + blocks(); }
  uint32_t sectorBytes() const { return sectorBytes_; }
  bool contains(uint64_t lba) const { return lba >= first_ && lba < end(); }

  /// One block; it must be contained.
  std::span<uint8_t> at(uint64_t lba) { return {bytes_.data() + (lba - first_) * sectorBytes_, sectorBytes_}; }
  std::span<const uint8_t> at(uint64_t lba) const {
    return {bytes_.data() + (lba - first_) * sectorBytes_, sectorBytes_};
  }
  uint8_t* data() { return bytes_.data(); }

 private:
  uint64_t first_ = 0;
  uint32_t sectorBytes_ = 0;
  std::vector<uint8_t> bytes_;
};

}  // namespace corvane::host
