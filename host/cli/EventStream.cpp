#include "host/cli/EventStream.h"

#include <csignal>
#include <cstring>
#include <utility>

#include "host/cli/EventJson.h"

namespace corvane::host {

std::string signalName(int signal) {
  const char* name = sigabbrev_np(signal);
  return name == nullptr ? "signal " + std::to_string(signal) : std::string("SIG") + name;
}

EventStream::EventStream(std::unique_ptr<EventFile> file, HostClock& clock,
                         std::function<void(const std::string& cause)> warn)
    : file_(std::move(file)), clock_(clock), warn_(std::move(warn)) {}

void EventStream::start(const StartEvent& start) {
  const std::lock_guard lock(mutex_);
  for (const DriveIntroduction& drive : start.drives) {
    drives_.push_back(drive.name);
  }
  ended_.assign(drives_.size(), false);
  file_->empty();
  beganUs_ = clock_.steadyUs();
  running_ = true;
  writeLocked(start);
}

void EventStream::progress(const ProgressSnapshot& now) {
  const std::lock_guard lock(mutex_);
  for (uint32_t drive = 0; drive < now.drives.size() && drive < ended_.size(); ++drive) {
    if (!ended_[drive]) {
      writeLocked(ProgressEvent{.driveIndex = drive, .totals = now.drives[drive].totals});
    }
  }
}

void EventStream::stop(int signal) { write(StopEvent{.signal = signalName(signal)}); }

void EventStream::end(const EndEvent& end) {
  const std::lock_guard lock(mutex_);
  writeLocked(end);
  if (running_ && !file_->flush()) {
    warnOnce();
  }
  running_ = false;
}

void EventStream::onAgentLine(uint32_t driveIndex, int level, std::string_view text) {
  write(AgentEvent{.driveIndex = driveIndex, .level = level, .text = std::string(text)});
}

void EventStream::onReset(uint32_t driveIndex) { write(ResetEvent{.driveIndex = driveIndex}); }

void EventStream::onPowerCycle(uint32_t driveIndex) { write(PowerCycleEvent{.driveIndex = driveIndex}); }

void EventStream::onConnectionLost(uint32_t driveIndex, std::string_view cause) {
  write(ConnectionLostEvent{.driveIndex = driveIndex, .cause = std::string(cause)});
}

void EventStream::onFinding(uint32_t driveIndex, const Finding& finding) {
  write(FindingEvent{.driveIndex = driveIndex, .finding = finding});
}

void EventStream::onDriveEnd(uint32_t driveIndex, const DriveResult& result) {
  const std::lock_guard lock(mutex_);
  if (driveIndex < ended_.size()) {
    ended_[driveIndex] = true;
  }
  writeLocked(DriveEndEvent{.driveIndex = driveIndex,
                            .status = result.status,
                            .agentStatus = result.agentStatus,
                            .error = result.error,
                            .elapsedMs = result.elapsedMs,
                            .totals = result.totals});
}

void EventStream::write(decltype(RunEvent::what) what) {
  const std::lock_guard lock(mutex_);
  writeLocked(std::move(what));
}

void EventStream::writeLocked(decltype(RunEvent::what) what) {
  if (!running_) {
    return;
  }
  const uint64_t ms = (clock_.steadyUs() - beganUs_) / 1000;
  if (lost_ != 0 && append(ms, LostEvent{.events = lost_})) {
    lost_ = 0;
  }
  if (lost_ == 0 && append(ms, std::move(what))) {
    return;
  }
  ++lost_;
  warnOnce();
}

void EventStream::warnOnce() {
  if (!std::exchange(warned_, true)) {
    warn_(file_->cause());
  }
}

bool EventStream::append(uint64_t ms, decltype(RunEvent::what) what) {
  return file_->append(eventLine({.ms = ms, .what = std::move(what)}, drives_));
}

}  // namespace corvane::host
