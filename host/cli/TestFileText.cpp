#include <toml++/toml.h>

#include <algorithm>
#include <charconv>
#include <sstream>
#include <utility>
#include <vector>

#include "host/cli/TestFile.h"
#include "host/cli/UsageError.h"

namespace corvane::host {
namespace {

std::string quoted(const std::string& text) {
  std::ostringstream out;
  out.exceptions(std::ios::badbit);  // without memory it would leave text out
  out << toml::toml_formatter(toml::value<std::string>(text), toml::format_flags::none);
  return out.str();
}

/// A key, without quotes where TOML asks for none.
std::string keyText(const std::string& name) {
  const bool bare = !name.empty() && std::all_of(name.begin(), name.end(), [](char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '_' || c == '-';
  });
  return bare ? name : quoted(name);
}

/// Whether TOML has a number that is written exactly so.
bool isNumber(const std::string& text) {
  int64_t value = 0;
  const auto [end, fault] = std::from_chars(text.data(), text.data() + text.size(), value);
  return fault == std::errc() && end == text.data() + text.size() && std::to_string(value) == text;
}

std::string valueText(const std::string& text) { return isNumber(text) ? text : quoted(text); }

std::string tableText(const TestKey& key, const std::vector<std::string>& texts) {
  std::vector<std::pair<std::string, std::string>> entries;  // of a name that is set twice the last value counts
  for (const std::string& text : texts) {
    const size_t equals = text.find('=');
    const std::string name = text.substr(0, equals);
    std::erase_if(entries, [&](const auto& entry) { return entry.first == name; });
    entries.emplace_back(name, text.substr(equals + 1));
  }
  std::string lines = std::string("\n[") + key.table + "]\n";
  for (const auto& [name, value] : entries) {
    lines += keyText(name) + " = " + valueText(value) + "\n";
  }
  return lines;
}

std::string listText(const std::vector<std::string>& texts) {
  std::string list;
  for (const std::string& text : texts) {
    list += (list.empty() ? "[" : ", ") + quoted(text);
  }
  return list + "]";
}

std::string valueOf(const TestKey& key, const std::vector<std::string>& texts) {
  switch (key.form) {
    case TestKeyForm::repeatable:
      return listText(texts);
    case TestKeyForm::onOff:
      return texts.front();
    case TestKeyForm::once:
    case TestKeyForm::table:
      break;
  }
  return valueText(texts.front());
}

bool comesBack(const std::string& text) {
  try {
    return toml::parse("text = " + quoted(text))["text"].value<std::string>() == text;
  } catch (const toml::parse_error&) {
    return false;
  }
}

void checkWritable(const RunSettings& settings, const TestKey& key, const std::vector<std::string>& texts) {
  for (const std::string& text : texts) {
    if (!comesBack(text)) {
      throw UsageError(nameOf(settings, key.name) + " '" + text +
                       "' is no UTF-8 text, and a test file can hold nothing else; give another name");
    }
  }
}

}  // namespace

std::string testFileText(const RunSettings& settings) {
  std::string lines;
  std::string tables;  // behind all keys: what follows a table's head belongs to it
  for (const TestKey& key : testKeys()) {
    const std::vector<std::string> texts = key.texts(settings);
    if (texts.empty()) {
      continue;
    }
    checkWritable(settings, key, texts);
    if (key.form == TestKeyForm::table) {
      tables += tableText(key, texts);
    } else {
      lines += std::string(key.name) + " = " + valueOf(key, texts) + "\n";
    }
  }
  return lines + tables;
}

}  // namespace corvane::host
