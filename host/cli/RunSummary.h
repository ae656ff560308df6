#pragma once

#include <string>

#include "host/cli/RunSettings.h"
#include "host/run/RunResult.h"

namespace corvane::host {

/// One drive's verdict on one line: "clean", or what happened in capitals and the first error line:
/// "DATA FAILURE: Miscompare Detected at LBA …".
std::string verdictText(const DriveResult& drive);

/// The last line of a run: "Result: clean, nothing found" or e.g. "Result: data failure (exit status 1)".
std::string resultLine(RunStatus status);

/// What a run came to, for people: each drive's verdict and figures, the files that were left, the command that
/// repeats the run, and the result line. Every line ends with a line break.
std::string summaryText(const RunSettings& settings, const RunResult& result);

}  // namespace corvane::host
