// Test files: TOML of a user's own, the settings that it gives, and the file that gives them again.

#include <optional>
#include <string>

#include <nlohmann/json.hpp>

#include "fuzz/Target.h"
#include "host/cli/GivenTest.h"
#include "host/cli/TestFile.h"
#include "host/cli/TestJson.h"
#include "host/cli/UsageError.h"

using corvane::fuzz::require;
using corvane::fuzz::requireMessage;
using namespace corvane::host;

namespace {

const std::string path = "x.toml";

std::optional<GivenTest> readFile(std::string_view text) {
  try {
    return testFileFrom(text, path);
  } catch (const UsageError& error) {
    requireMessage(error.what(), path + ":", text);
    return std::nullopt;
  }
}

std::optional<RunSettings> settingsOf(const GivenTest& given, std::string_view text) {
  try {
    return given.settings();
  } catch (const UsageError& error) {
    requireMessage(error.what(), given.of("drive").empty() ? "--drive" : path, text);
    return std::nullopt;
  }
}

/// What was said is said again by every form that settings have.
void writeAgain(const RunSettings& settings) {
  const std::string written = testFileText(settings);
  const RunSettings fromFile = testFileFrom(written, path).settings();
  require(testFileText(fromFile) == written, "a test file that is written is read as the same settings");
  const RunSettings fromFlags = givenBy(settings).settings();
  require(testFileText(fromFlags) == written, "flags that are written are read as the same settings");
  // The seed is no part of the test there, and what goes to the terminal neither.
  const RunSettings fromJson = testFromJson(testJson(settings), path).settings();
  require(testJson(fromJson) == testJson(settings), "a test that is written as JSON is read as the same settings");
}

}  // namespace

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string_view text(reinterpret_cast<const char*>(data), size);
  const std::optional<GivenTest> given = readFile(text);
  if (!given) {
    return 0;
  }
  if (const std::optional<RunSettings> settings = settingsOf(*given, text)) {
    writeAgain(*settings);
  }
  return 0;
}
