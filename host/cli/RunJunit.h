#pragma once

#include <string>
#include <string_view>

#include "host/cli/RunSettings.h"
#include "host/run/RunResult.h"

namespace corvane::host {

/// The result of a run as a JUnit document, which systems for continuous integration show: one suite, one case a
/// drive. A data failure is a `failure`, everything else that went wrong an `error`; `system-out` has the drive's
/// verdict and the command that repeats the run.

/// The document of a test that ran.
std::string runJunit(const RunSettings& settings, const RunResult& result);

/// The document of a test that could not begin, or broke off as a whole: each drive's case has the same error.
std::string failedRunJunit(const RunSettings& settings, RunStatus status, std::string_view error);

}  // namespace corvane::host
