#pragma once

#include <nlohmann/json.hpp>
#include <optional>
#include <string_view>

#include "host/cli/JsonFields.h"
#include "host/run/RunResult.h"
#include "host/run/TestRun.h"

namespace corvane::host {

/// Values that stand in more than one kind of output for programs, there and back. What is read may be anything: the
/// fault of `JsonFields` says what was wrong with it.

/// Adds a drive's `commands`, `events`, `blocks` and `bytes`.
void addFigures(nlohmann::ordered_json& object, const DriveTotals& totals);
/// What `addFigures` added; `outstanding` is not among it.
DriveTotals figuresFrom(JsonFields& fields);

/// Adds a drive's `name`, `address`, `description`, `geometry` and `range`.
void addIntroduction(nlohmann::ordered_json& object, const DriveIntroduction& drive);
DriveIntroduction introductionFrom(JsonFields& fields);

/// The status that `runStatusName` calls so; nothing for another text.
std::optional<RunStatus> runStatusNamed(std::string_view name);

}  // namespace corvane::host
