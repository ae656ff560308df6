#pragma once

#include <functional>

#include "host/cli/Console.h"
#include "host/cli/RunSettings.h"
#include "host/run/TestRun.h"

namespace corvane::host {

/// `corvane run`: says what is tested, runs it, and leaves a summary and a JSON document. Returns the exit status.
///
/// SIGINT and SIGTERM end the test early. Throws UsageError, ConfigurationError, DriveAddressError or DriveError when
/// the test cannot begin; no file or folder that was not there before is left then, but for the documents that `--json`
/// and `--junit` ask for. Call it on the main thread.
///
/// @param surroundings as TestRun takes them
/// @param onResult     called last, with what came of the test
int runTest(const RunSettings& settings, Console& out, RunSurroundings surroundings = {},
            const std::function<void(const RunResult&)>& onResult = {});

/// `corvane run --dry-run`: prints the test as a test file; opens no drive and makes no file. Returns the exit status.
///
/// Throws UsageError for an option that the agent does not take.
int showResolvedTest(const RunSettings& settings, Console& out);

}  // namespace corvane::host
