#include <algorithm>
#include <array>

#include "BlockHash.h"
#include "Completion.h"
#include "FindByTag.h"
#include "HardError.h"
#include "LbaSpan.h"

namespace vdl::agent {

namespace {

/// Keeps the hash of every block that the buffer holds. Sectors stand one after the other, whatever the stride.
///
/// @return blocks whose hash was kept
uint32_t saveHashes(Step& step, const PreRead& preRead, const LbaSpan& span, const uint8_t* bytes, uint64_t size) {
  const uint32_t sector = sectorBytes(step.thread);
  const uint64_t wanted = span.first < span.end ? (span.end - span.first - 1) / span.step + 1 : 0;
  const uint64_t blocks = std::min(wanted, size / sector);
  std::array<uint64_t, 64> hashes;
  uint32_t saved = 0;
  for (uint64_t i = 0; i < blocks; ++i) {
    const uint64_t place = i % hashes.size();
    if (place == 0) {
      const auto count = static_cast<uint32_t>(std::min<uint64_t>(blocks - i, hashes.size()));
      blockHashes(bytes + i * sector, sector, sector, count, hashes.data());
    }
    const uint64_t lba = span.first + i * span.step;
    // A pre-read that an atomic write claimed in flight holds no reference: that write holds one.
    const bool addRef = preRead.readCmdId == 0;
    const int32_t kept = step.data.atomicHash.saveHash(preRead.cmdId, lba, hashes[place], addRef);
    saved += kept == status::ok ? 1 : 0;
  }
  return saved;
}

}  // namespace

int32_t recvPreRead(Step& step, const FinishedCommand& finished) {
  DriveData& data = step.data;
  const auto preRead = takeByTag(data.preReadSent, finished.tag);
  if (!preRead) {
    step.log().logf(2, "recvPreRead(): couldn't find pre-read");
    return status::noRecord;
  }
  if (finished.status == statusAborted) {
    data.trace->traceReadAborted(finished.lba, finished.xferLength, preRead->cmdId, finished.tag);
    return status::ok;
  }
  const SenseResult sense = finished.status == statusGood ? SenseResult{} : readSense(step);
  data.trace->traceReadFinished(finished.lba, finished.xferLength, preRead->cmdId, finished.tag, sense.uec, sense.kcq);
  if (sense.hard) {
    return status::ok;
  }

  int32_t result = status::ok;
  LbaSpan span = spanOf(preRead->lba, preRead->xferLength, step.config.useSkipCommands);
  uint64_t size = 0;
  const uint8_t* bytes = data.readDataPtr == nullptr ? nullptr : data.readDataPtr->getData(finished.tag, &size);
  if (bytes == nullptr) {
    step.log().logf(2, "recvPreRead() Read Buffer == NULL");
    result = status::bufferTooLarge;
  }
  if (sense.informationValid != 0) {
    span.end = sense.information;
  }
  const uint32_t saved = bytes == nullptr ? 0 : saveHashes(step, *preRead, span, bytes, size);
  if (preRead->readCmdId == 0) {
    data.preReadFinished.push_back(*preRead);
    // A block without a hash has no reference either, but its read-back will give one back.
    data.referencesBalanced = data.referencesBalanced && saved == preRead->xferLength;
  }
  return result == status::ok ? result : logFailure(step, "recvPreRead", result);
}

}  // namespace vdl::agent
