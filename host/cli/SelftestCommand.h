#pragma once

#include <CLI/CLI.hpp>
#include <optional>
#include <string>
#include <vector>

#include "host/fault/FaultClass.h"

namespace corvane::host {

/// The flags of `corvane selftest`, as they were given.
class SelftestCommandLine {
 public:
  /// Adds the flags; `selftest` outlives the object.
  explicit SelftestCommandLine(CLI::App& selftest);

  struct Settings {
    bool full = false;
    std::vector<FaultClass> classes;  ///< empty: every one
    std::optional<uint64_t> seeds;
    uint64_t firstSeed = 1;
    uint32_t jobs = 0;  ///< 0: one a processor
    std::string jsonPath;
  };

  /// Throws UsageError.
  Settings settings() const;

 private:
  bool quick_ = false;
  bool full_ = false;
  std::vector<std::string> classes_;
  std::vector<std::string> seeds_;
  std::vector<std::string> firstSeed_;
  std::vector<std::string> jobs_;
  std::vector<std::string> json_;
};

/// `corvane selftest`: injects faults into simulated drives and tells which of them the agent finds. Returns the exit
/// status: 1 when a fault that must be found was missed, when a clean run alarmed, or when the campaign could not be
/// made to miss anything.
int runSelftest(const SelftestCommandLine::Settings& settings, const std::string& pluginPath);

}  // namespace corvane::host
