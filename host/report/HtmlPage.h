#pragma once

#include <string>
#include <string_view>

#include "host/report/RunReport.h"

namespace corvane::host::report {

/// The report as one HTML file that needs nothing beside it and asks no network for anything. Without scripts it shows
/// the report as text.
std::string htmlPage(const RunReport& report);

/// A text with what HTML could take for its own escaped.
std::string htmlEscaped(std::string_view text);

}  // namespace corvane::host::report
