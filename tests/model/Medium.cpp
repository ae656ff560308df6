#include "tests/model/Medium.h"

namespace refmodel {

namespace {

constexpr uint32_t zeroBlock = 0xFF0000;
constexpr uint32_t unknownBlock = 0x80001;
constexpr uint32_t firstNoBucket = 0x80000;

}  // namespace

Bytes Medium::before(uint64_t lba) const {
  Bytes block(sector_);
  for (uint32_t i = 0; i < sector_; ++i) {
    block[i] = static_cast<uint8_t>(0xA5 + 7 * i + 31 * lba);
  }
  return block;
}

uint64_t Medium::hashBefore(uint64_t lba) const {
  const auto [place, isNew] = hashesBefore_.try_emplace(lba);
  if (isNew) {
    place->second = hashOf(before(lba));
  }
  return place->second;
}

Bytes Medium::foreign(uint64_t lba) const { return written(buckets() - 1, {true, 0x7777, lba + 0x4000}); }

Bytes Medium::written(uint32_t number, const vdl::EmbedData& embed) const {
  Bytes block;
  if (number == zeroBlock) {
    block.assign(sector_, 0);
  } else if (number < buckets()) {
    const auto from = pool_.begin() + static_cast<std::ptrdiff_t>(uint64_t{number} * sector_);
    block.assign(from, from + sector_);
  } else {
    return block;
  }
  if (embed.valid) {
    for (int i = 0; i < 8; ++i) {
      block[8 + static_cast<unsigned>(i)] = static_cast<uint8_t>(embed.lba >> (56 - 8 * i));
    }
    int bytesOfId = 0;
    while (bytesOfId < 8 && embed.cmd_id >> (8 * bytesOfId) != 0) {
      ++bytesOfId;
    }
    block[16] = static_cast<uint8_t>(bytesOfId);
    for (int i = 0; i < bytesOfId; ++i) {
      block[17 + static_cast<unsigned>(i)] = static_cast<uint8_t>(embed.cmd_id >> (8 * (bytesOfId - 1 - i)));
    }
  }
  return block;
}

vdl::ObserveData observationOf(const Bytes& block) {
  vdl::ObserveData seen;
  const uint32_t number = uint32_t{block[0]} << 16 | uint32_t{block[1]} << 8 | block[2];
  seen.block_num = number >= firstNoBucket && number < zeroBlock ? unknownBlock : number;
  seen.embed.valid = true;
  for (unsigned i = 8; i < 16; ++i) {
    seen.embed.lba = seen.embed.lba << 8 | block[i];
  }
  for (unsigned i = 17; i < 17U + block[16]; ++i) {
    seen.embed.cmd_id = seen.embed.cmd_id << 8 | block[i];
  }
  return seen;
}

uint64_t hashOf(const Bytes& block) {
  uint64_t hash = 0;
  for (const uint8_t byte : block) {
    hash ^= (hash >> 2) + (hash << 6) + 0x9E3779B9 + byte;
  }
  return hash;
}

}  // namespace refmodel
