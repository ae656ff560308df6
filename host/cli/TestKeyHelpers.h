#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <type_traits>
#include <vector>

#include "host/cli/RunSettings.h"
#include "host/cli/ValueParsers.h"

namespace corvane::host {

/// What the parts of the table of settings have in common.

using SettingTexts = std::vector<std::string>;

/// The test of which nothing was said.
inline const TestDefinition& usualTest() {
  static const TestDefinition test;
  return test;
}

inline std::string withDefault(const std::string& text, const std::string& value) {
  return text + " Default: " + value + ".";
}

template <typename Number>
std::string rangeText(Number from, Number to) {
  return std::to_string(from) + ".." + std::to_string(to);
}

inline SettingTexts textIf(bool chosen, const std::string& text) {
  return chosen ? SettingTexts{text} : SettingTexts{};
}

/// Takes a count of at least 1 for a member of the test.
template <auto member>
void takeCount(RunSettings& settings, const std::string& where, const std::string& text) {
  settings.test.*member = parseCount(where, text, 1);
}

/// The text of a number among the members of the test.
template <auto member>
SettingTexts numberText(const RunSettings& settings) {
  return textIf(settings.test.*member != usualTest().*member, std::to_string(settings.test.*member));
}

}  // namespace corvane::host
