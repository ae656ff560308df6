#pragma once

#include <string>

#include "host/report/FindingView.h"
#include "host/report/TextReport.h"

namespace corvane::host::report {

/// One finding: what was found, the commands around it, the bytes, the neighbours and the history.
///
/// @param number 1: the first of the report
std::string findingSection(const FindingView& view, size_t number, const TextStyle& style);

/// One drive: totals, coverage, latencies and injected faults.
std::string driveSection(const DriveOfResult& drive, const TextStyle& style);

/// A text in bold red where colours are wanted.
std::string alarming(const std::string& text, const TextStyle& style);

}  // namespace corvane::host::report
