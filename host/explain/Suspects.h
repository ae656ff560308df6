#pragma once

#include <vector>

#include "host/explain/Explanation.h"
#include "host/run/FindingEvidence.h"

namespace corvane::host {

/// Which faults of a drive fit an explanation whose other parts are filled in, likeliest first.
///
/// Nothing that fits is left out: what a block shows is often the same for several causes, and then all are named.
std::vector<FaultClass> suspectsOf(const Explanation& explanation, const FindingEvidence& evidence);

}  // namespace corvane::host
