#pragma once

#include <cstdint>
#include <mutex>
#include <string>
#include <string_view>

#include "host/run/RunObserver.h"
#include "host/run/RunResult.h"

namespace corvane::host {

/// Collects what an agent logs for one drive, and passes it on. Any thread.
class AgentLog {
 public:
  /// @param observer null or outlives the object
  AgentLog(uint32_t driveIndex, RunObserver* observer) : driveIndex_(driveIndex), observer_(observer) {}

  void add(int level, std::string_view text);

  AgentMessages messages() const;
  /// The first line of level 2; empty when there is none.
  std::string firstError() const;

 private:
  void noteFile(std::string_view text);

  const uint32_t driveIndex_;
  RunObserver* const observer_;
  mutable std::mutex mutex_;
  AgentMessages messages_;
};

}  // namespace corvane::host
