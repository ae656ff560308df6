#pragma once

#include <vector>

#include "host/run/RunObserver.h"

namespace corvane::host {

/// Tells several observers, in their order, what it is told itself.
class ObserverList final : public RunObserver {
 public:
  /// @param observer outlives the object; add all of them before the test runs
  void add(RunObserver& observer) { observers_.push_back(&observer); }

  void onAgentLine(uint32_t driveIndex, int level, std::string_view text) override {
    for (RunObserver* one : observers_) {
      one->onAgentLine(driveIndex, level, text);
    }
  }
  void onReset(uint32_t driveIndex) override {
    for (RunObserver* one : observers_) {
      one->onReset(driveIndex);
    }
  }
  void onPowerCycle(uint32_t driveIndex) override {
    for (RunObserver* one : observers_) {
      one->onPowerCycle(driveIndex);
    }
  }
  void onConnectionLost(uint32_t driveIndex, std::string_view cause) override {
    for (RunObserver* one : observers_) {
      one->onConnectionLost(driveIndex, cause);
    }
  }
  void onFinding(uint32_t driveIndex, const Finding& finding) override {
    for (RunObserver* one : observers_) {
      one->onFinding(driveIndex, finding);
    }
  }
  void onDriveEnd(uint32_t driveIndex, const DriveResult& result) override {
    for (RunObserver* one : observers_) {
      one->onDriveEnd(driveIndex, result);
    }
  }

 private:
  std::vector<RunObserver*> observers_;
};

}  // namespace corvane::host
