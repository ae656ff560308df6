#pragma once

#include <cstdint>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

#include "host/cli/Console.h"
#include "host/run/RunObserver.h"

namespace corvane::host {

/// Whether a line of the agent says that a drive did not hold what it had to hold.
bool announcesFinding(std::string_view line);

/// Prints the agent's warnings and errors while a test runs, each with its drive's name, findings marked.
class AgentLines final : public RunObserver {
 public:
  /// @param console outlives the object
  explicit AgentLines(Console& console) : console_(console) {}

  /// The display names; before the test starts.
  void setDrives(std::vector<std::string> names);

  void onAgentLine(uint32_t driveIndex, int level, std::string_view text) override;

  /// Whether there was a finding, by drive. Any thread.
  std::vector<bool> found() const;

 private:
  Console& console_;
  mutable std::mutex mutex_;
  std::vector<std::string> names_;
  std::vector<bool> found_;
};

}  // namespace corvane::host
