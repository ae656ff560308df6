#include "host/cli/TestJson.h"

#include "host/cli/UsageError.h"

namespace corvane::host {
namespace {

using Json = nlohmann::ordered_json;

Json valueOf(const TestKey& key, const std::vector<std::string>& texts) {
  switch (key.form) {
    case TestKeyForm::onOff:
      return true;
    case TestKeyForm::repeatable:
      return texts;
    case TestKeyForm::once:
      return texts.front();
    case TestKeyForm::table:
      break;
  }
  Json table = Json::object();
  for (const std::string& text : texts) {
    const size_t equals = text.find('=');
    table[text.substr(0, equals)] = text.substr(equals + 1);
  }
  return table;
}

/// The texts of a setting. Throws Json::exception for a value of another form.
std::vector<std::string> textsOf(const TestKey& key, const Json& value) {
  std::vector<std::string> texts;
  switch (key.form) {
    case TestKeyForm::onOff:
      return {value.get<bool>() ? onText : "false"};
    case TestKeyForm::once:
      return {value.get<std::string>()};
    case TestKeyForm::repeatable:
      for (const Json& text : value.get_ref<const Json::array_t&>()) {
        texts.push_back(text.get<std::string>());
      }
      break;
    case TestKeyForm::table:
      for (const auto& [name, text] : value.get_ref<const Json::object_t&>()) {
        texts.push_back(std::string(name).append("=").append(text.get<std::string>()));
      }
      break;
  }
  return texts;
}

}  // namespace

Json testJson(const RunSettings& settings) {
  Json test = Json::object();
  for (const TestKey& key : testKeys()) {
    if (const std::vector<std::string> texts = key.texts(settings); key.ofTest && !texts.empty()) {
      test[key.nameInFile()] = valueOf(key, texts);
    }
  }
  return test;
}

GivenTest testFromJson(const Json& test, const std::string& path) {
  GivenTest given;
  for (const auto& [name, value] : test.items()) {
    const std::string where = std::string(path).append(": test.").append(name);
    const TestKey* key = testKeyInFile(name);
    if (key == nullptr) {
      throw UsageError(where + " is no setting that this program knows; take the program that wrote the document");
    }
    const std::string fault = where + " is not what a run writes; name a document of a run that nobody has changed";
    try {
      for (std::string& text : textsOf(*key, value)) {
        // What the system calls a path would end at a zero byte.
        if (text.find('\0') != std::string::npos) {
          throw UsageError(fault);
        }
        given.give(*key, std::move(text), where);
      }
    } catch (const Json::exception&) {
      throw UsageError(fault);
    }
  }
  return given;
}

}  // namespace corvane::host
