#pragma once

#include <string>
#include <string_view>

#include "host/run/ConditionNames.h"
#include "vdl/Condition.h"

namespace corvane::host {

/// Reads a condition that is written with names.
///
/// | Written                 | Holds while                            | Masks                     |
/// |-------------------------|----------------------------------------|---------------------------|
/// | `write`                 | it is set                              | any: write                |
/// | `write & armed`         | both are set                           | all: write, armed         |
/// | `write \| atomic`       | at least one is set                    | any: write, atomic        |
/// | `!hold`                 | it is not set                          | none: hold                |
/// | `(a \| b) & c & !hold`  | a or b, and c, and not hold            | any: a, b; all: c; none   |
///
/// A leading '=' sets the replace flag: applying the condition then clears every other one.
///
/// Throws ConfigurationError, one line that quotes the text, for anything that the masks cannot express, for names that
/// do not exist, and for a condition that can never hold.
vdl::Condition parseCondition(std::string_view text, const ConditionNames& names);

/// A text that `parseCondition` reads back as a condition of the same meaning; empty when no mask is set.
std::string conditionText(const vdl::Condition& condition, const ConditionNames& names);

}  // namespace corvane::host
