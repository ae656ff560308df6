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

/// Adds --overwrite, which lets a test destroy what a drive holds. It is a flag alone, never a key of a test file nor a
/// part of a document: a file that is passed on must not destroy the disk that has the same name elsewhere.
///
/// @param on outlives the parsing
void addOverwrite(CLI::App& app, const char* group, bool& on);

/// The value of a flag that may be given once; null when it was not given. Throws UsageError when it was given again.
const std::string* onlyValue(std::string_view flag, const std::vector<std::string>& values);

/// Throws UsageError for an empty value: "name `what`".
void checkNotEmpty(std::string_view flag, const std::string& text, std::string_view what);

}  // namespace corvane::host
