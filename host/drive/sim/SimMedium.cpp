#include "host/drive/sim/SimMedium.h"

#include <algorithm>
#include <cstring>

#include "host/base/Random.h"

namespace corvane::host {

void SimMedium::read(uint64_t lba, uint64_t blocks, uint8_t* out) {
  while (blocks != 0) {
    const uint64_t offset = lba % pageBlocks;
    const uint64_t run = std::min(blocks, pageBlocks - offset);
    if (const uint8_t* page = pages_.find(lba / pageBlocks)) {
      std::memcpy(out, page + offset * sectorBytes_, run * sectorBytes_);
    } else {
      for (uint64_t i = 0; i < run; ++i) {
        fillUnwritten(lba + i, out + i * sectorBytes_);
      }
    }
    lba += run;
    blocks -= run;
    out += run * sectorBytes_;
  }
}

void SimMedium::write(uint64_t lba, uint64_t blocks, const uint8_t* data) {
  while (blocks != 0) {
    const uint64_t offset = lba % pageBlocks;
    const uint64_t run = std::min(blocks, pageBlocks - offset);
    std::memcpy(make(lba / pageBlocks) + offset * sectorBytes_, data, run * sectorBytes_);
    lba += run;
    blocks -= run;
    data += run * sectorBytes_;
  }
}

void SimMedium::zero(uint64_t lba, uint64_t blocks) {
  while (blocks != 0) {
    const uint64_t offset = lba % pageBlocks;
    const uint64_t run = std::min(blocks, pageBlocks - offset);
    if (unwrittenAs_ != Unwritten::zeros || pages_.find(lba / pageBlocks) != nullptr) {
      std::memset(make(lba / pageBlocks) + offset * sectorBytes_, 0, run * sectorBytes_);
    }
    lba += run;
    blocks -= run;
  }
}

const uint8_t* SimMedium::sector(uint64_t lba) {
  if (const uint8_t* page = pages_.find(lba / pageBlocks)) {
    return page + lba % pageBlocks * sectorBytes_;
  }
  if (unwritten_ == nullptr) {
    unwritten_ = std::make_unique<uint8_t[]>(sectorBytes_);
  }
  fillUnwritten(lba, unwritten_.get());
  return unwritten_.get();
}

uint8_t* SimMedium::make(uint64_t page) {
  if (uint8_t* found = pages_.find(page)) {
    return found;
  }
  uint8_t* const memory = pages_.make(page);
  for (uint64_t i = 0; i < pageBlocks; ++i) {
    fillUnwritten(page * pageBlocks + i, memory + i * sectorBytes_);
  }
  return memory;
}

void SimMedium::fillUnwritten(uint64_t lba, uint8_t* out) const {
  if (unwrittenAs_ == Unwritten::zeros) {
    std::memset(out, 0, sectorBytes_);
    return;
  }
  uint64_t state = lba;
  const uint64_t word = Random::splitMix(state);
  for (uint32_t i = 0; i < sectorBytes_; i += sizeof(word)) {
    std::memcpy(out + i, &word, std::min<size_t>(sizeof(word), sectorBytes_ - i));
  }
  out[0] = nobodysMark;
}

}  // namespace corvane::host
