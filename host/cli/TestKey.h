#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "host/cli/RunSettings.h"

namespace corvane::host {

/// How often a setting may be given, and what stands for it in a test file.
enum class TestKeyForm : uint8_t {
  once,        ///< one value
  repeatable,  ///< any number of values; a list in a test file
  onOff,       ///< a flag without a value; `true` or `false` in a test file
  table        ///< any number of NAME=VALUE; a table in a test file
};

inline constexpr const char* onText = "true";  ///< of an `onOff` setting that is on

/// One setting of a test: a flag of `corvane run`, a key of test files, a word of the command that repeats a run.
struct TestKey {
  const char* name;   ///< "queue-depth", for the flag "--queue-depth"
  const char* value;  ///< what the help calls its value; empty for `onOff`
  const char* group;  ///< heading in the help
  std::string help;
  TestKeyForm form = TestKeyForm::once;
  const char* table = nullptr;  ///< name of its table in a test file, for `table`
  const char* entry = nullptr;  ///< what messages call one entry of that table
  bool ofTest = true;           ///< decides what is tested or where its reports go, and not only what is said about it

  /// Puts one text of the setting into the settings; called once for each text.
  ///
  /// @param where what a message calls the setting: its flag, or its place in a test file
  ///
  /// Throws UsageError.
  void (*take)(RunSettings& settings, const std::string& where, const std::string& text) = nullptr;

  /// The texts that `take` makes the same setting of; none when it has its default. "true" for `onOff`.
  std::vector<std::string> (*texts)(const RunSettings& settings) = nullptr;

  /// What a test file and the document of a run call the setting.
  const char* nameInFile() const { return table != nullptr ? table : name; }
};

/// Every setting, in the order of the help.
const std::vector<TestKey>& testKeys();

/// The setting of a name; null when there is none.
const TestKey* testKeyNamed(std::string_view name);

/// The setting of a name in a test file or in the document of a run; null when there is none.
const TestKey* testKeyInFile(std::string_view name);

/// The parts of `testKeys`, each of which adds its own.
void addLimitKeys(std::vector<TestKey>& keys);
void addCommandKeys(std::vector<TestKey>& keys);
void addConditionKeys(std::vector<TestKey>& keys);
void addStressKeys(std::vector<TestKey>& keys);
void addOutputKeys(std::vector<TestKey>& keys);

}  // namespace corvane::host
