#include "ReadBackPrefetch.h"

#include <algorithm>

#include "SectorBuckets.h"

namespace vdl::agent {

namespace {

constexpr uint64_t cacheLine = 64;
/// From here on the processor sees by itself where a copy or compare goes.
constexpr uint64_t mostContentBytes = 1024;

}  // namespace

void prefetchReadBacks(const DriveData& data) {
  auto write = data.writeFinished.begin();
  const auto end = data.writeFinished.end();
  if (write == end) {
    return;
  }
  data.atomicHash.prefetchEvents(write->lba, write->xferLength);
  if (++write == end) {
    return;
  }
  data.atomicHash.prefetchRecords(write->lba);
  if (++write != end) {
    data.atomicHash.prefetchPlace(write->lba);
  }
}

void prefetchContent(const Step& step, const PeekResult& first, uint32_t blocks) {
  if (first.block_type != BlockType::Normal) {
    return;
  }
  const uint8_t* content = unstampedSector(step, first.block_num);
  if (content == nullptr) {
    return;
  }
  const uint64_t bytes = std::min(uint64_t{blocks} * sectorBytes(step.thread), mostContentBytes);
  for (uint64_t offset = 0; offset < bytes; offset += cacheLine) {
    __builtin_prefetch(content + offset);
  }
}

}  // namespace vdl::agent
