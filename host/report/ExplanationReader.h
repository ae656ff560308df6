#pragma once

#include "host/report/Explanation.h"
#include "host/report/JsonNode.h"

namespace corvane::host::report {

/// The explanation of a finding; what it does not say is absent. Throws ReportError as JsonNode does, also for a
/// command without the place that a picture of it needs.
Explanation readExplanation(const JsonNode& node);

}  // namespace corvane::host::report
