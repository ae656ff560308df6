#include "host/cli/PeriodicReport.h"

#include <algorithm>
#include <utility>

namespace corvane::host {

PeriodicReport::PeriodicReport(Sources sources, ProgressFacts facts, Console* out, EventStream* events)
    : sources_(std::move(sources)), progress_(std::move(facts)), out_(out), events_(events), status_(), event_() {
  status_.intervalMs = out != nullptr && out->isTerminal() ? terminalIntervalMs : lineIntervalMs;
  status_.dueMs = status_.intervalMs;
  event_ = {.intervalMs = eventIntervalMs, .dueMs = eventIntervalMs};
}

PeriodicReport::~PeriodicReport() {
  if (out_ != nullptr) {
    out_->clearStatus();
  }
}

uint64_t PeriodicReport::tell(uint64_t nowMs, int signal) {
  if (tellStop(signal) && out_ != nullptr && out_->isTerminal()) {
    status_.dueMs = nowMs;
  }
  const bool status = status_.take(nowMs) && out_ != nullptr;
  const bool event = event_.take(nowMs) && events_ != nullptr;
  if (status || event) {
    const ProgressSnapshot now = sources_.progress();
    if (event) {
      events_->progress(now);
    }
    if (status) {
      out_->status(progress_.next(now, sources_.found(), signal != 0));
    }
  }
  return std::min(status_.dueMs, event_.dueMs) - nowMs;
}

bool PeriodicReport::tellStop(int signal) {
  if (signal == 0 || std::exchange(stopTold_, true)) {
    return false;
  }
  if (events_ != nullptr) {
    events_->stop(signal);
  }
  if (out_ != nullptr) {
    out_->line(signalName(signal) +
               ": no further commands are sent, those outstanding are waited for; once more ends the program at once");
  }
  return true;
}

bool PeriodicReport::Turn::take(uint64_t nowMs) {
  if (nowMs < dueMs) {
    return false;
  }
  dueMs += ((nowMs - dueMs) / intervalMs + 1) * intervalMs;
  return true;
}

}  // namespace corvane::host
