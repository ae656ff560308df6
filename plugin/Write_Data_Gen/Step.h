#pragma once

#include <cstdint>

#include "ConfigData.h"
#include "DriveData.h"
#include "vdl/DriveThread.h"
#include "vdl/SenseParser.h"
#include "vdl/Status.h"

namespace vdl::agent {

using ComparableReadData = Corvane::ComparableReadData;
using ConfigData = Corvane::ConfigData;
using DriveData = Corvane::DriveData;
using PreRead = Corvane::CmdStatus::PreRead;
using ReadSent = Corvane::CmdStatus::ReadSent;
using VerifySent = Corvane::CmdStatus::VerifySent;
using WriteFinished = Corvane::CmdStatus::WriteFinished;
using WriteSent = Corvane::CmdStatus::WriteSent;

inline constexpr uint32_t noTag = 0xFFFFFFFF;
inline constexpr uint32_t noStatus = 0xFFFFFFFF;
inline constexpr uint32_t statusGood = 0;
inline constexpr uint32_t statusCheckCondition = 2;
inline constexpr uint32_t statusAborted = 64;  ///< taken back by the host

/// What one call of a drive's callback works on.
struct Step {
  DriveThread& thread;
  DriveData& data;
  const ConfigData& config;

  EventLog& log() const { return *thread.eventLog; }
};

/// The command that just finished: its tag, its status, and what the trace recorded on the tag.
struct FinishedCommand {
  uint32_t tag;
  uint32_t status;
  uint64_t lba;
  uint32_t xferLength;
};

/// Logs "<operation>(): <text> (<status>)" and returns the status.
int32_t logFailure(const Step& step, const char* operation, int32_t status);

/// Bytes of one block on the wire: logical block plus enabled protection information.
inline uint32_t sectorBytes(const DriveThread& thread) {
  return thread.blockSize + (thread.protectionEnabled ? thread.protectionBytes : 0);
}

/// Bytes of the end-to-end protection field that a WRPROTECT write carries behind each sector.
inline constexpr uint32_t e2eBytes = 8;

/// The wall clock, microseconds since the epoch.
uint64_t wallClockUs();

}  // namespace vdl::agent
