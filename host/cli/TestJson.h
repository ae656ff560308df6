#pragma once

#include <nlohmann/json.hpp>
#include <string>

#include "host/cli/GivenTest.h"
#include "host/cli/RunSettings.h"

namespace corvane::host {

/// The test of a run, for programs: the keys of test files with their values in the texts that flags take; a list for a
/// repeatable key, `true` for one that is on, an object for a table. What has its default is left out, the seed never.
nlohmann::ordered_json testJson(const RunSettings& settings);

/// Reads what `testJson` made.
///
/// @param path what messages call the document
///
/// Throws UsageError for a key or a type of value that no test has.
GivenTest testFromJson(const nlohmann::ordered_json& test, const std::string& path);

}  // namespace corvane::host
