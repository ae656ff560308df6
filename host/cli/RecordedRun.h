#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "host/cli/GivenTest.h"

namespace corvane::host {

/// A finding as a document of a run has it.
struct RecordedFinding {
  std::string drive;        ///< display name
  uint32_t driveIndex = 0;  ///< in the order of the test's drives
  int32_t agentStatus = 0;
  std::optional<uint64_t> lba;
  uint64_t commandNumber = 0;
  uint64_t step = 0;
};

/// What can be read back from the JSON document of a run.
struct RecordedRun {
  std::string version;  ///< of the program that made the run
  GivenTest test;
  std::vector<RecordedFinding> findings;
};

inline constexpr int runDocumentFormat = 1;  ///< of the documents that `runJson` writes and `readRecordedRun` reads

/// Reads the document of a run.
///
/// Throws UsageError with one line for a file that cannot be read, is no such document, or is of another format.
RecordedRun readRecordedRun(const std::string& path);

/// As `readRecordedRun`, for a text that is at hand.
///
/// @param path what messages call the text
RecordedRun recordedRunFrom(std::string_view text, const std::string& path);

}  // namespace corvane::host
