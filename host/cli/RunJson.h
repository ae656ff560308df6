#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "host/cli/RunSettings.h"
#include "host/explain/Explanation.h"
#include "host/run/RunResult.h"
#include "host/run/TestRun.h"

namespace corvane::host {

/// The result of a run as a JSON document. Its keys are a promise: programs read them, so none is renamed or dropped.
///
/// | Key             | Value                                                                                     |
/// |-----------------|-------------------------------------------------------------------------------------------|
/// | `format`        | 1; another number when a program that reads documents must be changed                     |
/// | `version`       | the program's                                                                             |
/// | `seed`          | number                                                                                    |
/// | `seedDrawn`     | whether the program chose the seed                                                        |
/// | `repeat`        | the words of the command that repeats the run                                             |
/// | `test`          | what was run: the keys of test files, values as flags take them; options in `options`    |
/// | `started`       | when, in UTC: "2026-01-31T12:00:00Z"                                                      |
/// | `status`        | "clean", "data failure", "configuration error", "drive error" or "internal error"; also   |
/// |                 | "unfinished": the test goes on, or the program was killed                                 |
/// | `exitStatus`    | the program's; null when unfinished                                                       |
/// | `error`         | one line when the test could not begin, broke off as a whole or is unfinished; else empty,|
/// |                 | and each drive has its own                                                                |
/// | `stopped`       | whether a signal ended the test                                                           |
/// | `elapsedMs`     | number                                                                                    |
/// | `warnings`      | sentences about what weakens the test                                                     |
/// | `drives`        | one object a drive, in the order of the command line; empty without a result              |
/// | `findings`      | one object a data failure, see below                                                      |
///
/// Of a drive:
///
/// | Key             | Value                                                                                     |
/// |-----------------|-------------------------------------------------------------------------------------------|
/// | `name`          | as in messages and file names                                                             |
/// | `address`       | as given                                                                                  |
/// | `description`   | the drive's own                                                                           |
/// | `geometry`      | `blocks`, `blockSize`, `protectionBytes`, `physicalBlockSize`; sizes in bytes             |
/// | `range`         | `firstLba`, `endLba` (not included)                                                       |
/// | `verdict`       | the line that people see                                                                  |
/// | `status`        | as above                                                                                  |
/// | `agentStatus`   | first status other than 0 that the agent returned, else 0                                 |
/// | `error`         | one line, empty when clean                                                                |
/// | `commands`      | see below                                                                                 |
/// | `events`        | `resets`, `powerCycles`, `connectionsLost`, `zoneResets`, `invalidations`                 |
/// | `blocks`        | `written`, `trimmed`, `read`, `compared`                                                  |
/// | `bytes`         | `written`, `read`, `compared`                                                             |
/// | `elapsedMs`     | number                                                                                    |
/// | `unanswered`    | commands that a drive which hangs has had for the watchdog's time, oldest first: `kind`,  |
/// |                 | `lba`, `blocks`, `tag`, `ageUs`; empty for one that does not hang                         |
/// | `messages`      | what the agent said: `warnings`, `errors` (numbers), `lines` (`level`, `text`; the first) |
/// | `latency`       | by kind, microseconds: `count`, `minUs`, `meanUs`, `p50Us`, `p90Us`, `p99Us`, `p999Us`,   |
/// |                 | `maxUs`, `buckets` (pairs of an upper bound and a count)                                  |
/// | `files`         | `reports` and `dumps`: paths                                                              |
///
/// Of a drive's `commands`, all numbers:
///
/// | Key             | Value                                                                                     |
/// |-----------------|-------------------------------------------------------------------------------------------|
/// | `issued`        | by kind: `write`, `atomic`, `writesame`, `trim`, `read`, `verify`, `sync`                 |
/// | `completed`     | by kind, delivered to the agent, whatever their status                                    |
/// | `failed`        | delivered with a status other than good                                                   |
/// | `retried`       | busy, task set full, unit attention, reservation conflict                                 |
/// | `heldBack`      | waited for an overlapping one                                                             |
/// | `stray`         | completions that nobody waited for                                                        |
/// | `maxOutstanding`| at once                                                                                   |
///
/// Of a finding:
///
/// | Key             | Value                                                                                     |
/// |-----------------|-------------------------------------------------------------------------------------------|
/// | `drive`         | its name                                                                                  |
/// | `driveIndex`    | its place in `drives`, from 0                                                             |
/// | `agentStatus`   | -1046 miscompare, -1062 write splice, -1063 atomic order                                  |
/// | `lba`           | number, or null when the agent named none                                                 |
/// | `commandNumber` | commands that had been issued to the drive                                                |
/// | `step`          | steps of the test's loop that had begun; `corvane replay` runs so far                     |
/// | `elapsedMs`     | since the drive's test began                                                              |
/// | `text`          | the agent's line                                                                          |
/// | `files`         | reports and dumps about it: paths                                                         |
///
/// Text that is not UTF-8 has its wrong bytes replaced.

/// The document of a test that ran.
///
/// @param explanations of the drives' findings, one a drive; may be empty
std::string runJson(const RunSettings& settings, const std::vector<DriveIntroduction>& drives,
                    const std::vector<std::string>& warnings, const RunResult& result,
                    const std::vector<std::optional<Explanation>>& explanations = {});

/// The document that stands there while the test runs.
std::string unfinishedRunJson(const RunSettings& settings, const std::vector<std::string>& warnings);

/// The document of a test that could not begin, or broke off as a whole.
std::string failedRunJson(const RunSettings& settings, RunStatus status, std::string_view error);

}  // namespace corvane::host
