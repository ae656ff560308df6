#include <algorithm>
#include <optional>

#include "ReadBack.h"
#include "Scheduling.h"

namespace vdl::agent {

namespace {

/// The oldest finished write; without one the oldest outstanding write that no read is linked to yet.
std::optional<WriteToCheck> takeWrite(DriveData& data, uint64_t readCmdId) {
  if (!data.writeFinished.empty()) {
    const WriteFinished write = data.writeFinished.front();
    data.writeFinished.pop_front();
    return WriteToCheck{write.lba, write.xferLength, write.spliceCheck, write.spliceRetries};
  }
  const auto write = std::find_if(data.writeSent.begin(), data.writeSent.end(), [](const WriteSent& candidate) {
    return candidate.readBack != 0 && candidate.readCmdId == 0;
  });
  if (write == data.writeSent.end()) {
    return std::nullopt;
  }
  write->readCmdId = readCmdId;
  return WriteToCheck{write->lba, write->xferLength, 0, 0};
}

enum class Choice { read, verify, neither, both };

Choice choose(const ConfigData& config, const ActiveConditions& active) {
  const bool readPossible = configured(config.readCondition);
  const bool verifyPossible = configured(config.verifyCondition);
  const bool read = readPossible && (!verifyPossible || active.read);
  const bool verify = verifyPossible && (!readPossible || active.verify);
  if (read == verify) {
    return read ? Choice::both : Choice::neither;
  }
  return read ? Choice::read : Choice::verify;
}

}  // namespace

int32_t doAReadOrVerify(Step& step, uint32_t tag, const ActiveConditions& active) {
  DriveData& data = step.data;
  if (data.skipGenOnList) {
    *data.skipGen = 1;
  }
  const uint64_t cmdId = data.nextCmdId++;
  const std::optional<WriteToCheck> write = takeWrite(data, cmdId);
  if (!write) {
    step.log().logf(2, "doAReadOrVerify(): failed to select write to read");
  }
  const WriteToCheck* target = write ? &*write : nullptr;
  switch (choose(step.config, active)) {
    case Choice::neither:
      step.log().logf(2, "Niether read nor verify selected during execution loop.");
      return status::incompatibleOptions;
    case Choice::both:
      step.log().logf(2, "Both Read and Verify condition selected during same execution loop.");
      return status::incompatibleOptions;
    case Choice::verify:
      // Whether a block can be read at all is only seen by reading it.
      if (target == nullptr || target->spliceCheck == 0) {
        return doAVerify(step, tag, cmdId, target);
      }
      break;
    case Choice::read:
      break;
  }
  return doARead(step, tag, cmdId, target);
}

}  // namespace vdl::agent
