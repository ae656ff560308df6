#pragma once

#include <cstdint>
#include <string>
#include <variant>
#include <vector>

#include "host/run/RunResult.h"
#include "host/run/TestRun.h"

namespace corvane::host {

/// What the events of a run say, as plain values. Drives are numbered as in `StartEvent::drives`.

/// The first one: what is tested.
struct StartEvent {
  std::string version;  ///< the program's
  uint64_t seed = 0;
  bool seedDrawn = false;           ///< nobody chose the seed
  std::vector<std::string> repeat;  ///< words of the command that runs the test again
  std::vector<std::string> warnings;
  std::vector<DriveIntroduction> drives;
};

/// Where a drive's test stands; told of every running drive each second.
struct ProgressEvent {
  uint32_t driveIndex = 0;
  DriveTotals totals;
};

/// The agent said something.
struct AgentEvent {
  uint32_t driveIndex = 0;
  int level = 0;  ///< 0 information, 1 warning, 2 error
  std::string text;
};

struct ResetEvent {
  uint32_t driveIndex = 0;
};

struct PowerCycleEvent {
  uint32_t driveIndex = 0;
};

struct ConnectionLostEvent {
  uint32_t driveIndex = 0;
  std::string cause;
};

struct FindingEvent {
  uint32_t driveIndex = 0;
  Finding finding;
};

/// A drive's part of the test is over.
struct DriveEndEvent {
  uint32_t driveIndex = 0;
  RunStatus status = RunStatus::clean;
  int32_t agentStatus = 0;
  std::string error;  ///< empty when clean
  uint64_t elapsedMs = 0;
  DriveTotals totals;
};

/// A signal asked the test to end early.
struct StopEvent {
  std::string signal;  ///< "SIGINT" or "SIGTERM"
};

/// Events before this one could not be written, for example because the disk was full.
struct LostEvent {
  uint64_t events = 0;
};

/// The last one: how the run ended.
struct EndEvent {
  RunStatus status = RunStatus::clean;
  int exitStatus = 0;
  bool stopped = false;  ///< ended by a signal
  std::string error;     ///< empty but for a run that failed as a whole
};

struct RunEvent {
  uint64_t ms = 0;  ///< since the start
  std::variant<StartEvent, ProgressEvent, AgentEvent, ResetEvent, PowerCycleEvent, ConnectionLostEvent, FindingEvent,
               DriveEndEvent, StopEvent, LostEvent, EndEvent>
      what;
};

}  // namespace corvane::host
