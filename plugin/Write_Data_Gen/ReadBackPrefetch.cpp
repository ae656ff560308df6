#include "ReadBackPrefetch.h"

#include "SectorBuckets.h"

namespace vdl::agent {

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

void prefetchContent(Step& step, const PeekResult& first, uint32_t blocks) {
  if (first.block_type != BlockType::Normal) {
    return;
  }
  const uint8_t* content = unstampedSector(step, first.block_num);
  if (content != nullptr) {
    step.data.sectorsAhead.prefetch(content, uint64_t{blocks} * sectorBytes(step.thread));
  }
}

}  // namespace vdl::agent
