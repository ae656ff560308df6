#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "host/drive/Drive.h"
#include "host/fault/FaultSpec.h"

namespace corvane::host {

/// What of a test decides whether a fault can strike in it.
struct FaultSurroundings {
  std::vector<CommandKind> kinds;  ///< that the test issues
  uint32_t maxBlocks = 1;
  uint32_t maxAtomicBound = 1;
  uint32_t drives = 1;
  bool powerCuts = false;
};

/// Why a test gives the fault no opportunity, as one sentence with its remedy; empty when it does.
std::string faultNeeds(const FaultSpec& spec, const FaultSurroundings& test, const DriveGeometry& geometry);

}  // namespace corvane::host
