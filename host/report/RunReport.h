#pragma once

#include <string>
#include <vector>

#include "host/report/FindingView.h"
#include "host/report/ResultDocument.h"

namespace corvane::host::report {

/// Everything that a report of a run shows.
struct RunReport {
  std::string resultFile;
  ResultDocument result;
  std::vector<FindingView> findings;  ///< one for each of the result's
};

/// Reads what a run left. Throws ReportError for a result that cannot be read; what is missing beside the result is
/// noted in the findings.
RunReport readRun(const RunFolder& folder);

}  // namespace corvane::host::report
