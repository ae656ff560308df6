#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "host/run/TestDefinition.h"

namespace corvane::host {

/// One way of testing in the campaign: what the test does, and on which simulated drive.
struct Workload {
  std::string name;     ///< "write-read"
  std::string help;     ///< one line
  TestDefinition test;  ///< without seed, faults and output; small enough that all is read back soon
};

/// Every workload of the campaign.
const std::vector<Workload>& workloads();

/// A workload whose reads bring no data, so that nothing is compared: whatever a drive does to it must be missed.
Workload canaryWorkload();

}  // namespace corvane::host
