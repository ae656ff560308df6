#pragma once

#include <string>
#include <vector>

#include "host/run/TestDefinition.h"

namespace corvane::host {

/// Judges the conditions of a test before it runs: names and expressions, whether each step that the test takes can be
/// chosen and runs alone, and whether a '!' can hold back what it stands before. Every combination of phases and
/// choices is looked at.
///
/// @param test            its mix as `mixUnder` has it
/// @param spliceDetection the agent's "Write Splice Detection", which reads whatever else is chosen
///
/// @return one sentence for each fault, that says why and what to change; empty when the test can run
std::vector<std::string> judgeConditions(const TestDefinition& test, bool spliceDetection);

}  // namespace corvane::host
