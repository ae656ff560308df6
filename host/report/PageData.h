#pragma once

#include <string>

#include "host/report/RunReport.h"

namespace corvane::host::report {

/// What the page shows, as JSON for its script.
///
/// Numbers that may have more than 53 bits (LBAs, ids, the seed) are decimal texts. The text holds nothing that could
/// end a script element: of what is not plain ASCII, and of '<', '>' and '&', only escapes.
std::string pageData(const RunReport& report);

}  // namespace corvane::host::report
