#pragma once

#include <map>
#include <string>
#include <vector>

#include "host/cli/GivenTest.h"
#include "host/cli/RunSettings.h"

namespace CLI {
class App;
}

namespace corvane::host {

/// The words of `corvane run`: a test file, and a flag for each setting of a test.
class RunCommandLine {
 public:
  /// Adds the flags, their help and the examples to the command.
  ///
  /// @param run outlives the object; the object outlives the parsing
  explicit RunCommandLine(CLI::App& run);
  RunCommandLine(const RunCommandLine&) = delete;
  RunCommandLine& operator=(const RunCommandLine&) = delete;

  /// What was asked for, after the parsing: what the test file says, overruled by the flags. Reads the test file and
  /// draws a seed when none was given; touches nothing but that.
  ///
  /// Throws UsageError for the first wrong value.
  RunSettings settings() const;

  /// Whether the test shall only be shown.
  bool dryRun() const { return dryRun_; }

 private:
  GivenTest flags() const;

  std::map<std::string, std::vector<std::string>> given_;  // the parser stores into the values
  std::map<std::string, bool> on_;                         // and into these
  std::vector<std::string> files_;
  bool overwrite_ = false;
  bool dryRun_ = false;
};

}  // namespace corvane::host
