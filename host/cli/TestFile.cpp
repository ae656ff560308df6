#include "host/cli/TestFile.h"

#include <toml++/toml.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <optional>
#include <utility>
#include <vector>

#include "host/base/NearestName.h"
#include "host/cli/InputFile.h"
#include "host/cli/UsageError.h"

namespace corvane::host {
namespace {

constexpr size_t longestFile = 1 << 20;

/// Reads one test file into what it says.
class Reader {
 public:
  explicit Reader(std::string path) : path_(std::move(path)) {}

  GivenTest read(std::string_view text) {
    toml::table root;
    try {
      root = toml::parse(text);
    } catch (const toml::parse_error& error) {
      refuseText(text, error);
    }
    for (const auto& [name, node] : inOrder(root)) {
      readEntry(*name, *node);
    }
    return std::move(given_);
  }

 private:
  using Entry = std::pair<const toml::key*, const toml::node*>;

  /// The entries of a table as they stand in the file; the parser sorts them by name.
  static std::vector<Entry> inOrder(const toml::table& table) {
    std::vector<Entry> entries;
    for (const auto& [name, node] : table) {
      entries.emplace_back(&name, &node);
    }
    std::stable_sort(entries.begin(), entries.end(), [](const Entry& a, const Entry& b) {
      const toml::source_position& left = a.first->source().begin;
      const toml::source_position& right = b.first->source().begin;
      return std::pair(left.line, left.column) < std::pair(right.line, right.column);
    });
    return entries;
  }

  std::string placeOf(const toml::source_region& at) const {
    return path_ + ":" + std::to_string(at.begin.line) + ": ";
  }

  [[noreturn]] void refuse(const toml::source_region& at, const std::string& fault) const {
    throw UsageError(placeOf(at) + fault);
  }

  [[noreturn]] void refuseText(std::string_view text, const toml::parse_error& error) const {
    const std::string_view fault = error.description();
    if (fault.find("cannot redefine") == std::string_view::npos) {
      refuse(error.source(), "this is no TOML: " + std::string(fault));
    }
    for (toml::source_index line = 1; line < error.source().begin.line; ++line) {
      text.remove_prefix(std::min(text.find('\n') + 1, text.size()));
    }
    std::string_view name = text.substr(0, text.find_first_of("=\n"));
    name = name.substr(0, name.find_last_not_of(" \t\r") + 1);
    refuse(error.source(), std::string(name) + " is given twice; give it once");
  }

  void readEntry(const toml::key& name, const toml::node& node) {
    const TestKey* key = testKeyInFile(name.str());
    if (key == nullptr) {
      refuseName(name);
    }
    if (key->form == TestKeyForm::table) {
      readTable(*key, name, node);
    } else if (key->form == TestKeyForm::repeatable && node.is_array()) {
      readList(*key, name, *node.as_array());
    } else {
      give(*key, name, node);
    }
  }

  [[noreturn]] void refuseName(const toml::key& name) const {
    const std::string text(name.str());
    if (const TestKey* flag = testKeyNamed(text)) {
      refuse(name.source(), "'" + text + "' is a flag; in a test file these stand in the table [" + flag->table + "]");
    }
    if (text == "overwrite") {
      refuse(name.source(),
             "'overwrite' is not a key of a test file, so that a file that is passed on destroys nobody's disk; give "
             "--overwrite on the command line");
    }
    std::vector<std::string> known;
    for (const TestKey& key : testKeys()) {
      known.emplace_back(key.nameInFile());
    }
    const std::string near = didYouMean(text, known);
    refuse(name.source(), "'" + text + "' is not a key of a test file" +
                              (near.empty() ? "; the flags in 'corvane run --help' are its keys" : near));
  }

  void readList(const TestKey& key, const toml::key& name, const toml::array& list) {
    if (list.empty()) {
      refuse(name.source(), std::string(key.name) + " is an empty list; name at least one, or leave the key out");
    }
    for (const toml::node& entry : list) {
      give(key, name, entry);
    }
  }

  void give(const TestKey& key, const toml::key& name, const toml::node& node) {
    const bool onOff = key.form == TestKeyForm::onOff;
    std::optional<std::string> text = onOff ? switchText(node) : valueText(node);
    if (!text) {
      std::string remedy =
          onOff ? "true or false"
                : std::string(key.value) + " as the flag takes it, in quotes unless it is a whole number";
      remedy += key.form == TestKeyForm::repeatable ? ", or a list of these" : "";
      remedy += node.is_table() ? didYouMean(key.name, tableNames()) : "";
      refuse(name.source(), std::string(key.name) + " is " + typeOf(node) + "; give " + remedy);
    }
    // A value may stand some lines below its key.
    const toml::source_region& at = node.source().begin ? node.source() : name.source();
    checkNoZeroByte(at, key.name, *text);
    given_.give(key, std::move(*text), placeOf(at) + key.name);
  }

  static std::optional<std::string> switchText(const toml::node& node) {
    const std::optional<bool> value = node.value_exact<bool>();
    return value ? std::optional<std::string>(*value ? onText : "false") : std::nullopt;
  }

  static std::optional<std::string> valueText(const toml::node& node) {
    if (auto text = node.value_exact<std::string>()) {
      return text;
    }
    if (const auto number = node.value_exact<int64_t>()) {
      return std::to_string(*number);
    }
    constexpr double largest = 9007199254740992.0;  // above it not every whole number has a double
    if (const auto number = node.value_exact<double>();
        number && std::trunc(*number) == *number && std::abs(*number) <= largest) {
      return std::to_string(static_cast<int64_t>(*number));
    }
    return std::nullopt;
  }

  static std::string typeOf(const toml::node& node) {
    switch (node.type()) {
      case toml::node_type::table:
        return "a table";
      case toml::node_type::array:
        return "a list";
      case toml::node_type::floating_point:
        return "no whole number";
      case toml::node_type::boolean:
        return "a bare true or false";
      case toml::node_type::string:
        return "a text";
      case toml::node_type::integer:
        return "a number";
      default:
        return "a date or time";
    }
  }

  static std::vector<std::string> tableNames() {
    std::vector<std::string> names;
    for (const TestKey& key : testKeys()) {
      if (key.form == TestKeyForm::table) {
        names.emplace_back(key.table);
      }
    }
    return names;
  }

  void readTable(const TestKey& key, const toml::key& name, const toml::node& node) {
    const toml::table* table = node.as_table();
    if (table == nullptr) {
      refuse(name.source(), std::string(key.table) + " is " + typeOf(node) + "; make it a table: [" + key.table +
                                "], and below it a line NAME = VALUE for each " + key.entry);
    }
    for (const auto& [entry, value] : inOrder(*table)) {
      giveEntry(key, *entry, *value);
    }
  }

  void giveEntry(const TestKey& key, const toml::key& entry, const toml::node& value) {
    const std::string name(entry.str());
    if (name.empty() || name.find('=') != std::string::npos) {
      refuse(entry.source(), "'" + name + "' cannot name the " + key.entry + " of a test; --" + key.name +
                                 " in 'corvane run --help' says which there are");
    }
    const std::optional<std::string> text = entryText(value);
    if (!text) {
      refuse(entry.source(), std::string("the ") + key.entry + " '" + name + "' is " + typeOf(value) +
                                 "; give a text, a number, true or false");
    }
    checkNoZeroByte(entry.source(), key.entry, name + *text);
    given_.give(key, name + "=" + *text, placeOf(entry.source()) + key.entry);
  }

  /// What the system calls a path ends at its first zero byte: another file than the one that is named here.
  void checkNoZeroByte(const toml::source_region& at, const std::string& what, std::string_view text) const {
    if (text.find('\0') != std::string_view::npos) {
      refuse(at, what + " has a zero byte, which no text of a test has; leave it out");
    }
  }

  static std::optional<std::string> entryText(const toml::node& node) {
    if (node.is_boolean()) {
      return switchText(node);
    }
    const auto number = node.value_exact<double>();
    if (!number || valueText(node)) {
      return valueText(node);
    }
    std::array<char, 32> digits{};
    const auto [end, fault] = std::to_chars(digits.data(), digits.data() + digits.size(), *number);
    return std::string(digits.data(), end);
  }

  const std::string path_;
  GivenTest given_;
};

}  // namespace

GivenTest readTestFile(const std::string& path) {
  const std::string text =
      readInputFile("test file", path, longestFile, "name a file of settings, or give a drive as in --drive sim:1g");
  return testFileFrom(text, path);
}

GivenTest testFileFrom(std::string_view text, const std::string& path) { return Reader(path).read(text); }

}  // namespace corvane::host
