#pragma once

#include <cstdint>
#include <string>

namespace corvane::host {

/// What is missing of a file that the agent says it has written: the agent does not look whether its writing went well.
///
/// Empty: nothing is, as far as the file shows. Else the rest of a sentence that begins with the file's name, with the
/// cause where the file system tells it.
///
/// @param leastBytes what a complete file has at least
std::string whatIsMissingOfDump(const std::string& path, uint64_t leastBytes);
/// The same of a command-sequence report, which has lines and ends with one.
std::string whatIsMissingOfReport(const std::string& path);

}  // namespace corvane::host
