#pragma once

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
int runTest(const RunSettings& settings, Console& out, RunSurroundings surroundings = {});

}  // namespace corvane::host
