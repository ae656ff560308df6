#include "Scheduling.h"
#include "WriteData.h"

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

/// How many writes await their read-back, as far as it decides between a write and a read.
enum class Backlog { tooSmall, small, medium, large, full };

Backlog backlogOf(const ConfigData& config, uint64_t count) {
  if (count < config.minQueueSize) {
    return Backlog::tooSmall;
  }
  if (count >= config.maxQueueSize) {
    return Backlog::full;
  }
  const uint64_t percent = count * 100 / config.maxQueueSize;
  return percent <= 24 ? Backlog::small : percent <= 75 ? Backlog::medium : Backlog::large;
}

/// The writes in flight are only looked at when they could make a difference.
Backlog backlog(const Step& step) {
  const uint64_t finished = step.data.writeFinished.size();
  const Backlog least = backlogOf(step.config, finished);
  const Backlog most = backlogOf(step.config, finished + step.data.writeSent.size());
  return least == most ? least : backlogOf(step.config, awaitingReadBack(step.data));
}

/// The emptier the queue, the likelier a write.
bool drawWrite(Step& step, Backlog waiting) {
  step.data.readShare = waiting == Backlog::small ? 63 : waiting == Backlog::medium ? 127 : 191;
  return static_cast<uint8_t>(step.data.rng()) > step.data.readShare;
}

/// What comes after this command is drawn already, or follows from it; the write data then lie ready.
void prefetchForNextWrite(Step& step) {
  const DriveData& data = step.data;
  if (!step.config.randomSelection) {
    if (!data.readPhase) {
      prefetchNextBucket(step, 0, *data.xferLength);
    }
  } else if (static_cast<uint8_t>(data.rng.foreseen(0)) > data.readShare) {
    prefetchNextBucket(step, 1, *data.xferLength);
  }
}

/// Keeps the distance between writes and their read-backs between the two queue sizes.
bool chooseWrite(Step& step) {
  const Backlog waiting = backlog(step);
  bool& readPhase = step.data.readPhase;
  if (waiting == Backlog::tooSmall) {
    readPhase = false;
  } else if (waiting == Backlog::full) {
    readPhase = true;
  } else if (step.config.randomSelection) {
    readPhase = !drawWrite(step, waiting);
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
  const int32_t result = !chooseWrite(step)   ? doAReadOrVerify(step, tag, active)
                         : active.writeAtomic ? doAWriteAtomic(step, tag)
                                              : doAWrite(step, tag, active);
  prefetchForNextWrite(step);
  return result;
}

int32_t checkTransferLength(const Step& step, uint32_t xferLength) {
  if (xferLength <= step.config.bucketCount) {
    return status::ok;
  }
  step.log().logf(2, "Requested buffer too large: need=%u, max=%u", xferLength, step.config.bucketCount - 1);
  return status::bufferTooLarge;
}

}  // namespace vdl::agent
