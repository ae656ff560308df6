#pragma once

#include <string>

#include "host/report/RunReport.h"

namespace corvane::host::report {

/// How a report is written as text.
struct TextStyle {
  bool colours = false;  ///< marks with the colours of a terminal; without them with characters alone
  size_t columns = 100;  ///< sentences are broken so that they fit
};

/// The report for a terminal, with the same content as the page. Control characters of texts of the result are
/// replaced. Every line ends with a line break.
std::string textReport(const RunReport& report, const TextStyle& style);

}  // namespace corvane::host::report
