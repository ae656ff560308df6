#include "Scheduling.h"

namespace vdl::agent {

namespace {

enum class PowerStep { nothingDue, toggled, flushing, resetFailed };

bool toggleIsDue(const Step& step) {
  if (!configured(step.config.powerToggleCondition)) {
    return false;
  }
  const double seconds = (static_cast<double>(wallClockUs()) / 1000.0 - step.data.powerOnTime) / 1000.0;
  return seconds >= step.config.powerToggleFreq;
}

/// Cuts power when it is time; with a cache flush to make first, asks for that and waits for its completion, while
/// ordinary commands keep flowing.
PowerStep togglePower(Step& step, uint32_t tag) {
  if (!toggleIsDue(step)) {
    return PowerStep::nothingDue;
  }
  DriveData& data = step.data;
  if (!configured(step.config.syncCacheCondition) || data.syncDone) {
    if (Corvane::deviceReset(&step.thread, &step.config, &data) != status::ok) {
      return PowerStep::resetFailed;
    }
    apply(step.config.powerToggleCondition, step.thread);
    data.trace->tracePowerOff();
    return PowerStep::toggled;
  }
  if (!data.syncIssued) {
    data.syncIssued = true;
    apply(step.config.syncCacheCondition, step.thread);
    data.trace->traceSyncIssued(tag);
    return PowerStep::flushing;
  }
  return PowerStep::nothingDue;
}

/// Writes that still await their read-back.
uint64_t awaitingReadBack(const DriveData& data) {
  uint64_t count = data.writeFinished.size();
  for (const WriteSent& write : data.writeSent) {
    count += write.readBack != 0 && write.readCmdId == 0 ? 1 : 0;
  }
  return count;
}

/// The emptier the queue, the likelier a write.
bool drawWrite(Step& step, uint64_t count) {
  const auto draw = static_cast<uint8_t>(step.data.rng());
  const uint64_t percent = count * 100 / step.config.maxQueueSize;
  if (percent <= 24) {
    return draw > 63;
  }
  return percent <= 75 ? draw > 127 : draw > 191;
}

/// Keeps the distance between writes and their read-backs between the two queue sizes.
bool chooseWrite(Step& step) {
  const uint64_t count = awaitingReadBack(step.data);
  bool& readPhase = step.data.readPhase;
  if (count < step.config.minQueueSize) {
    readPhase = false;
  } else if (count >= step.config.maxQueueSize) {
    readPhase = true;
  } else if (step.config.randomSelection) {
    readPhase = !drawWrite(step, count);
  }
  return !readPhase;
}

}  // namespace

int32_t prepareNextCommand(Step& step) {
  DriveData& data = step.data;
  const bool resetSeen = *data.deviceReset;
  ActiveConditions active;
  disableCommandConditions(step.thread, step.config, active);

  const uint32_t tag = step.thread.freeTags->peekNextFreeTag();
  if (tag == noTag) {
    return status::ok;
  }
  const PowerStep power = togglePower(step, tag);
  if (power == PowerStep::resetFailed) {
    // Commands that are not accounted for stand on tags that are free again: nothing may be issued on those.
    return status::outOfMemory;
  }
  if (power == PowerStep::toggled) {
    return status::ok;
  }
  if (resetSeen) {
    const int32_t result = Corvane::deviceReset(&step.thread, &step.config, &data);
    *data.deviceReset = false;
    return result;
  }
  if (power == PowerStep::flushing) {
    return status::ok;
  }
  if (!chooseWrite(step)) {
    return doAReadOrVerify(step, tag, active);
  }
  return active.writeAtomic ? doAWriteAtomic(step, tag) : doAWrite(step, tag, active);
}

int32_t checkTransferLength(const Step& step, uint32_t xferLength) {
  if (xferLength <= step.config.bucketCount) {
    return status::ok;
  }
  step.log().logf(2, "Requested buffer too large: need=%u, max=%u", xferLength, step.config.bucketCount - 1);
  return status::bufferTooLarge;
}

}  // namespace vdl::agent
