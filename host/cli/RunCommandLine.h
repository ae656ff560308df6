#pragma once

#include <functional>
#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "host/cli/RunSettings.h"

namespace CLI {
class App;
}

namespace corvane::host {

/// The flags of `corvane run`.
class RunCommandLine {
 public:
  /// Adds the flags, their help and the examples to the command.
  ///
  /// @param run outlives the object; the object outlives the parsing
  explicit RunCommandLine(CLI::App& run);
  RunCommandLine(const RunCommandLine&) = delete;
  RunCommandLine& operator=(const RunCommandLine&) = delete;

  /// What was asked for, after the parsing; a seed is drawn when none was given. Touches nothing but that.
  ///
  /// Throws UsageError for the first wrong value.
  RunSettings settings() const;

 private:
  void addTestFlags(CLI::App& run);
  void addCommandFlags(CLI::App& run);
  void addFaultFlag(CLI::App& run);
  void addAgentFlags(CLI::App& run);
  void addOutputFlags(CLI::App& run);
  void add(CLI::App& run, const char* group, const char* flag, const char* value, std::string_view help);

  const std::string* once(std::string_view flag) const;
  const std::vector<std::string>& all(std::string_view flag) const;
  void readLimits(TestDefinition& test) const;
  void readCommands(TestDefinition& test) const;
  void readStress(TestDefinition& test) const;
  void readOutput(RunSettings& settings) const;

  std::map<std::string, std::vector<std::string>, std::less<>> given_;  // the parser stores into the values
  bool forceUnitAccess_ = false;
  bool quiet_ = false;
};

}  // namespace corvane::host
