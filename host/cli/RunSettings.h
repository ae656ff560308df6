#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "host/run/TestDefinition.h"

namespace corvane::host {

inline constexpr uint64_t usualTimeLimitMs = 10'000;  ///< when neither a time nor a number of commands is given
inline constexpr const char* usualOutputDirectory = "corvane-out";
inline constexpr const char* usualJsonName = "result.json";  ///< in the output folder

/// What `corvane run` was asked for: the test, and what to do beside it.
struct RunSettings {
  TestDefinition test;
  bool seedDrawn = false;    ///< nobody chose the seed
  bool pluginGiven = false;  ///< not the plug-in that comes with the program
  bool outputGiven = false;  ///< not the usual output folder
  std::string jsonPath;      ///< where the JSON document goes
  bool jsonGiven = false;    ///< not the usual file in the output folder
  std::string eventsPath;    ///< where the events go; empty: nowhere
  std::string junitPath;     ///< where the JUnit document goes; empty: nowhere
  bool quiet = false;        ///< say nothing unless something was found or failed
};

/// The command line that runs the same test again, as words; the first is "corvane". Flags that have their default
/// are left out, the seed never is.
std::vector<std::string> repeatCommand(const RunSettings& settings);

/// The line for a shell that runs a test to its finding again, from its JSON document.
std::string replayLine(const RunSettings& settings);

}  // namespace corvane::host
