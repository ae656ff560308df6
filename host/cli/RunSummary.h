#pragma once

#include <optional>
#include <string>
#include <vector>

#include "host/cli/RunSettings.h"
#include "host/explain/Explanation.h"
#include "host/run/RunResult.h"

namespace corvane::host {

/// One drive's verdict on one line: "clean", or what happened in capitals and the first error line:
/// "DATA FAILURE: Miscompare Detected at LBA …".
std::string verdictText(const DriveResult& drive);

/// The last line of a run: "Result: clean, nothing found" or e.g. "Result: data failure (exit status 1)".
std::string resultLine(RunStatus status);

/// An explanation for people: its sentences, and both blocks side by side. Every line ends with a line break.
std::string explanationText(const Explanation& explanation);

/// What a run came to, for people: each drive's verdict and figures, what was found and what it means, the files that
/// were left, the command that repeats the run, and the result line. Every line ends with a line break.
///
/// @param explanations of the drives' findings, one a drive; may be empty
std::string summaryText(const RunSettings& settings, const RunResult& result,
                        const std::vector<std::optional<Explanation>>& explanations = {});

}  // namespace corvane::host
