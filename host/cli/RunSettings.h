#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "host/run/TestDefinition.h"

namespace corvane::host {

inline constexpr uint64_t usualTimeLimitMs = 10'000;  ///< when no limit is given
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
  uint64_t startedUs = 0;    ///< when it was asked for, microseconds since the epoch
  /// Where a setting was given, as messages name it; see `nameOf`.
  std::map<std::string, std::string, std::less<>> places;
  std::map<std::pair<std::string, std::string>, std::string> entryPlaces;  ///< the same; see `nameOfEntry`
};

/// What a message calls a setting: its place in a test file when it comes from there, else its flag.
std::string nameOf(const RunSettings& settings, std::string_view key);

/// As `nameOf`, for one of several: a drive by its address, an option of the agent by its name.
std::string nameOfEntry(const RunSettings& settings, const std::string& key, const std::string& entry);

/// What messages call the setting that decides where the JSON document goes.
std::string nameOfJson(const RunSettings& settings);

/// The command line that runs the same test again, as words; the first is "corvane". Flags that have their default
/// are left out, the seed never is.
std::vector<std::string> repeatCommand(const RunSettings& settings);

/// The line for a shell that runs a test to its finding again, from its JSON document.
std::string replayLine(const RunSettings& settings);

}  // namespace corvane::host
