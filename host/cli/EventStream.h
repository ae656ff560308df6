#pragma once

#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

#include "host/cli/EventFile.h"
#include "host/cli/RunEvents.h"
#include "host/run/HostClock.h"
#include "host/run/RunObserver.h"

namespace corvane::host {

/// Writes the events of a run, one JSON object a line, as they happen.
///
/// An event that cannot be written does not disturb the test: somebody is told once, the next one is tried again, and
/// an event before the first one that succeeds says how many are missing. Any thread.
class EventStream final : public RunObserver {
 public:
  /// @param file  where the events go
  /// @param clock outlives the object
  /// @param warn  told why an event could not be written, the first time; on any thread
  EventStream(std::unique_ptr<EventFile> file, HostClock& clock, std::function<void(const std::string& cause)> warn);

  /// Empties the file and begins; the times of all events count from now. What comes before is dropped.
  void start(const StartEvent& start);
  /// One event for each drive whose end has not been told.
  void progress(const ProgressSnapshot& now);
  /// @param signal its number
  void stop(int signal);
  /// The last one: what comes after it is dropped.
  void end(const EndEvent& end);

  void onAgentLine(uint32_t driveIndex, int level, std::string_view text) override;
  void onReset(uint32_t driveIndex) override;
  void onPowerCycle(uint32_t driveIndex) override;
  void onConnectionLost(uint32_t driveIndex, std::string_view cause) override;
  void onFinding(uint32_t driveIndex, const Finding& finding) override;
  void onDriveEnd(uint32_t driveIndex, const DriveResult& result) override;

 private:
  void write(decltype(RunEvent::what) what);
  void writeLocked(decltype(RunEvent::what) what);
  bool append(uint64_t ms, decltype(RunEvent::what) what);
  void warnOnce();

  const std::unique_ptr<EventFile> file_;
  HostClock& clock_;
  const std::function<void(const std::string&)> warn_;

  std::mutex mutex_;
  bool running_ = false;  ///< between start and end
  uint64_t beganUs_ = 0;
  std::vector<std::string> drives_;
  std::vector<bool> ended_;  ///< by drive
  uint64_t lost_ = 0;        ///< events since the last one that was written
  bool warned_ = false;
};

/// "SIGINT" for its number; "signal 99" for one that has no usual name.
std::string signalName(int signal);

}  // namespace corvane::host
