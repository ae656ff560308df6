#pragma once

#include <CLI/CLI.hpp>
#include <string>
#include <vector>

#include "host/cli/Console.h"

namespace corvane::host {

/// The flags of `corvane report`, as they were given.
class ReportCommandLine {
 public:
  /// Adds the flags; `report` outlives the object.
  explicit ReportCommandLine(CLI::App& report);

  struct Settings {
    std::string run;     ///< the folder or the result of a run
    std::string output;  ///< the page; empty: report.html in the folder of the result
    bool text = false;   ///< to the terminal instead
  };

  /// Throws UsageError.
  Settings settings() const;

 private:
  std::vector<std::string> run_;
  std::vector<std::string> output_;
  bool text_ = false;
};

/// `corvane report`: shows what a run left, as a page or as text. Returns the exit status, whatever the run came to.
///
/// Throws UsageError when there is no result, when it cannot be read, and when the page cannot be written.
int showReport(const ReportCommandLine::Settings& settings, Console& out);

}  // namespace corvane::host
