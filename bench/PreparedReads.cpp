#include "bench/PreparedReads.h"

#include <cstring>
#include <utility>

#include "WriteData.h"

namespace corvane::bench {

void prepareReads(vdl::agent::Step& step, uint32_t blocks, uint64_t& id) {
  vdl::AtomicHash& table = step.data.atomicHash;
  const uint64_t bytes = uint64_t{blocks} * vdl::agent::sectorBytes(step.thread);
  for (uint64_t i = 0; i < readsInABatch; ++i) {
    const uint64_t lba = i * blocks;
    const uint64_t write = ++id;
    const uint64_t read = ++id;
    const vdl::BlockNum bucket = vdl::agent::chooseBucket(step, blocks);
    vdl::agent::assembleWriteData(step, {0, lba, write, bucket, blocks, false, true});
    vdl::agent::ComparableReadData kept;
    for (uint32_t k = 0; k < blocks; ++k) {
      table.writeIssued(write, lba + k, bucket + k, {true, write, lba + k});
      table.writeFinished(write, lba + k);
      table.readIssued(read, lba + k, true);
    }
    kept.cmdId = read;
    kept.lba = lba;
    kept.xferLength = blocks;
    kept.blockCount = blocks;
    kept.data.reserve(bytes);
    std::memcpy(kept.data.data, step.data.writeData->data, bytes);
    kept.data.size = bytes;
    step.data.comparableReads.push_back(std::move(kept));
  }
}

}  // namespace corvane::bench
