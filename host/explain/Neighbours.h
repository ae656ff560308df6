#pragma once

#include <vector>

#include "host/explain/Explanation.h"
#include "host/explain/WrittenData.h"
#include "host/run/FindingEvidence.h"

namespace corvane::host {

/// What stands on the blocks around a finding, as they were read after the test, against what the commands of the test
/// say: "expected" is the content that the last command over the block had to leave there.
std::vector<NeighbourBlock> neighbours(const FindingEvidence& evidence, const WrittenData& data);

}  // namespace corvane::host
