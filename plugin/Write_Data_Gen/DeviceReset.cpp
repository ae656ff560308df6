#include <cstdio>

#include "CallbackGuard.h"
#include "LostCommands.h"
#include "Step.h"

namespace vdl {

namespace agent {

namespace {

void unlock(TaggedBuffer* buffers, uint32_t tag) {
  if (buffers != nullptr) {
    buffers->unlock(tag);
  }
}

void takeTagsBack(Step& step) {
  DriveData& data = step.data;
  for (int32_t tag = step.thread.freeTags->getNotFreeTag(0, false); tag >= 0;
       tag = step.thread.freeTags->getNotFreeTag(0, false)) {
    const auto taken = static_cast<uint32_t>(tag);
    unlock(data.readDataPtr, taken);
    unlock(data.cdb, taken);
    unlock(data.parameterList, taken);
    step.thread.freeTags->pushFreeTag(taken, 0);
  }
  // A tag that may exist, but with a status that says that nothing finished.
  *data.readDataIsValid = 0;
  *data.lastTagID = 255;
  *data.lastStatusByte = noStatus;
}

/// The read is done again; those lost last come first.
///
/// The new entry is made before anything is accounted, so that a lack of memory loses no command and counts none twice.
void requeueReads(Step& step) {
  DriveData& data = step.data;
  while (!data.readSent.empty()) {
    const ReadSent& lost = data.readSent.front();
    data.writeFinished.push_front(WriteFinished{0, lost.lba, lost.xferLength, lost.spliceCheck, 0});
    commandLost(data, step.config, lost);
    std::printf("re-queuing read cmd_id:%lu:%lx\n", static_cast<unsigned long>(lost.cmdId),
                static_cast<unsigned long>(lost.cmdId));
    data.readSent.pop_front();
  }
}

void requeueWrites(Step& step) {
  DriveData& data = step.data;
  while (!data.writeSent.empty()) {
    const WriteSent& lost = data.writeSent.front();
    const bool again = lost.readBackOnError != 0 || step.config.writeSpliceDetection;
    if (again) {
      const uint8_t spliceCheck = lost.readBackOnError != 0 ? 0 : 1;
      data.writeFinished.push_back(WriteFinished{lost.cmdId, lost.lba, lost.xferLength, spliceCheck, 0});
    }
    commandLost(data, step.config, lost);
    // A read against this write may have paid its references off already.
    data.referencesBalanced = data.referencesBalanced && lost.readCmdId == 0 && again;
    data.writeSent.pop_front();
  }
}

void deviceReset(Step& step) {
  DriveData& data = step.data;
  takeTagsBack(step);
  for (const PreRead& lost : data.preReadSent) {
    commandLost(data, lost);
  }
  data.preReadSent.clear();
  for (const VerifySent& lost : data.verifySent) {
    commandLost(data, lost);
  }
  data.verifySent.clear();
  requeueReads(step);
  requeueWrites(step);
}

}  // namespace
}  // namespace agent

int Corvane::deviceReset(DriveThread* drive, const void* configData, void* driveData) noexcept {
  return agent::guardMemory(*drive, "deviceReset", [&]() -> int {
    agent::Step step{*drive, *static_cast<DriveData*>(driveData), *static_cast<const ConfigData*>(configData)};
    agent::deviceReset(step);
    return status::ok;
  });
}

}  // namespace vdl
