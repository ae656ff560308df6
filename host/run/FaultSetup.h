#pragma once

#include "host/fault/FaultNeeds.h"
#include "host/run/TestDefinition.h"

namespace corvane::host {

/// What of a test decides which faults can strike in it.
FaultSurroundings faultSurroundings(const TestDefinition& test);

}  // namespace corvane::host
