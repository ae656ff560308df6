#pragma once

#include <CLI/CLI.hpp>
#include <string>
#include <string_view>
#include <vector>

namespace corvane::host {

/// Adds a flag whose every value is collected, so that one given twice is refused and not silently overruled.
///
/// @param values outlives the parsing
void addCollected(CLI::App& app, const char* group, const char* flag, const char* valueName, std::string_view help,
                  std::vector<std::string>& values);

/// The value of a flag that may be given once; null when it was not given. Throws UsageError when it was given again.
const std::string* onlyValue(std::string_view flag, const std::vector<std::string>& values);

/// Throws UsageError for an empty value: "name `what`".
void checkNotEmpty(std::string_view flag, const std::string& text, std::string_view what);

}  // namespace corvane::host
