#pragma once

#include <functional>
#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "host/cli/RunSettings.h"
#include "host/cli/TestKey.h"

namespace corvane::host {

/// What somebody said about a test: texts of settings, each with the place where it stands.
///
/// A command line, a test file and the document of a run are all read into one of these, and settings are made of it.
class GivenTest {
 public:
  struct Text {
    std::string text;
    std::string where;  ///< as messages name it: "--queue-depth", "x.toml:3: queue-depth"
  };

  /// Adds a text of a setting; the caller sees to it that one that is not repeatable comes once.
  void give(const TestKey& key, std::string text, std::string where);

  /// Takes everything back that was said about a setting.
  void drop(std::string_view key);

  /// The texts of a setting, in their order; none when nothing was said.
  const std::vector<Text>& of(std::string_view key) const;

  /// What the other says counts, also where both say something: its texts replace those that are here. Of a table only
  /// the entries that both name are replaced.
  void overruleBy(const GivenTest& other);

  /// The settings; a seed is drawn and a time limit set when nothing was said of either. Touches nothing but that.
  ///
  /// Throws UsageError for the first wrong text, in the order of `testKeys`.
  RunSettings settings() const;

 private:
  std::map<std::string, std::vector<Text>, std::less<>> texts_;
};

/// What would have to be said to get these settings: `GivenTest::settings` makes the same of it. The places are flags.
GivenTest givenBy(const RunSettings& settings);

}  // namespace corvane::host
