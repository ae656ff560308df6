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

void give(GivenTest& given, const TestKey& key, const Json& value, const std::string& where) {
  switch (key.form) {
    case TestKeyForm::onOff:
      given.give(key, value.get<bool>() ? onText : "false", where);
      return;
    case TestKeyForm::once:
      given.give(key, value.get<std::string>(), where);
      return;
    case TestKeyForm::repeatable:
      for (const Json& text : value.get_ref<const Json::array_t&>()) {
        given.give(key, text.get<std::string>(), where);
      }
      return;
    case TestKeyForm::table:
      for (const auto& [name, text] : value.get_ref<const Json::object_t&>()) {
        given.give(key, std::string(name).append("=").append(text.get<std::string>()), where);
      }
      return;
  }
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
    try {
      give(given, *key, value, where);
    } catch (const Json::exception&) {
      throw UsageError(where + " is not what a run writes; name a document of a run that nobody has changed");
    }
  }
  return given;
}

}  // namespace corvane::host
