#pragma once

#include <string>
#include <string_view>

#include "host/cli/GivenTest.h"

namespace corvane::host {

/// Reads a test file: TOML, whose keys are those of `testKeys`, with a table for those of which there are several by
/// name, as [options].
///
/// Values are the texts that flags take; whole numbers, `true` and `false` may stand without quotes, and the values of
/// a repeatable key are a list.
///
/// Throws UsageError with one line, "FILE:LINE: what is wrong; what is accepted", for a file that cannot be read, is no
/// TOML, or has a key or a type of value that no test has. The values themselves are judged by `GivenTest::settings`.
GivenTest readTestFile(const std::string& path);

/// As `readTestFile`, for a text that is at hand.
///
/// @param path what messages call the text
GivenTest testFileFrom(std::string_view text, const std::string& path);

/// The test file that gives these settings when it is read: every key that has not its default, and the seed.
///
/// Throws UsageError for a setting that is no UTF-8 text, which a test file cannot hold.
std::string testFileText(const RunSettings& settings);

}  // namespace corvane::host
