// What a step loop does when the connection to its drive is lost, and what it reads after the test.

#include <string>

#include "host/drive/SenseData.h"
#include "host/run/StepLoop.h"

namespace corvane::host {
namespace {

constexpr uint64_t resetPauseUs = 100'000;  ///< between the resets of a drive that is lost in them
constexpr uint32_t readTries = 4;           ///< of a read after the test that is aborted or lost

}  // namespace

int32_t StepLoop::goOnAfter(const DriveConnectionLost& lost) {
  noteLoss(lost);
  if (!settings_.lossEndsTest.empty()) {
    throw DriveError("the connection to the drive was lost (" + std::string(lost.what()) + "), and " +
                     settings_.lossEndsTest);
  }
  reachDrive();
  closeZonesOfSentWrites();
  forgetOutstanding();
  if (lastTagId_ != nothing) {
    // A completion was published before the loss: it counts, but a reset would make the agent forget it.
    parkFreeTags();
    if (const int32_t status = executeQuietly(); status != 0) {
      return status;
    }
  }
  const int32_t status = tellAgentOfReset();
  publishLostSync();
  return status;
}

void StepLoop::noteLoss(const DriveConnectionLost& lost) {
  counters_.connectionsLost.add(1);
  noteIncident(Incident::What::connectionLost);
  settings_.observer->onConnectionLost(settings_.driveIndex, lost.what());
  if (queue_.completions() != completionsAtLoss_) {
    completionsAtLoss_ = queue_.completions();
    lossesSinceCompletion_ = 0;
  }
  if (++lossesSinceCompletion_ == lossesInARow) {
    throw DriveError("the connection to the drive was lost " + std::to_string(lossesInARow) +
                     " times and no command ended in between (" + lost.what() +
                     "); check the connection and that the other side is up");
  }
}

void StepLoop::closeZonesOfSentWrites() {
  if (!zoneWriter_) {
    return;
  }
  // Unlike a device that was only reset, a drive that is reached again may never have seen them.
  for (uint32_t tag = 0; tag < tags_.size(); ++tag) {
    if (queue_.isOutstanding(tag) && !queue_.isUnsent(tag) && queue_.command(tag).kind == CommandKind::write) {
      zoneWriter_->closeZoneOf(queue_.command(tag).lba);
    }
  }
}

void StepLoop::reachDrive() {
  for (uint32_t attempt = 1;; ++attempt) {
    try {
      const DriveCalls::Inside inside(settings_.calls, resetCall);
      drive_.reset();
      return;
    } catch (const DriveConnectionLost& lost) {
      if (attempt == resetTries) {
        throw DriveError("the connection to the drive was lost again in each of " + std::to_string(resetTries) +
                         " resets (" + lost.what() + "); check the connection and that the other side is up");
      }
    }
    clock_.pause(resetPauseUs);
  }
}

void StepLoop::abandon() {
  draining_ = true;
  try {
    letOutstandingEnd();
  } catch (const DriveConnectionLost&) {
    // The test has its end already; a drive that is gone must not take it away.
    try {
      reachDrive();
    } catch (const DriveError&) {
    }
    forgetOutstanding();
  }
  counters_.outstanding.set(0);
  publishNone();
}

void StepLoop::letOutstandingEnd() {
  DriveCompletion completion;
  while (queue_.outstanding() != 0) {
    queue_.wait(completion);
    if (settings_.journal != nullptr) {
      settings_.journal->finished(completion.tag, completion.status);
    }
  }
}

std::vector<uint8_t> StepLoop::readNow(uint64_t lba, uint32_t blocks) {
  DriveCommand command;
  command.kind = CommandKind::read;
  command.lba = lba;
  command.blocks = blocks;
  command.dataBytes = uint64_t{blocks} * host_.sectorBytes();
  command.data = readMemory_.of(command.tag);
  DriveCompletion completion;
  for (uint32_t tries = 0; tries < readTries && !readOnce(command, completion); ++tries) {
  }
  if (!isCarriedOut(completion) || completion.bytesTransferred < command.dataBytes) {
    return {};
  }
  return {command.data, command.data + command.dataBytes};
}

bool StepLoop::readOnce(const DriveCommand& command, DriveCompletion& completion) {
  try {
    queue_.submit(command);
    queue_.wait(completion);
  } catch (const DriveConnectionLost&) {
    reachDrive();
    queue_.forgetAll();
    completion = {.status = scsi_status::aborted};
  }
  return completion.status != scsi_status::aborted;
}

}  // namespace corvane::host
