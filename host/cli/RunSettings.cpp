#include "host/cli/RunSettings.h"

#include "host/cli/TestKey.h"

namespace corvane::host {

std::string nameOf(const RunSettings& settings, std::string_view key) {
  const auto place = settings.places.find(key);
  return place == settings.places.end() ? "--" + std::string(key) : place->second;
}

std::string nameOfOption(const RunSettings& settings, const std::string& option) {
  const auto place = settings.optionPlaces.find(option);
  return place == settings.optionPlaces.end() ? nameOf(settings, "set") : place->second;
}

std::vector<std::string> repeatCommand(const RunSettings& settings) {
  std::vector<std::string> words{"corvane", "run"};
  for (const TestKey& key : testKeys()) {
    if (!key.ofTest) {
      continue;
    }
    for (const std::string& text : key.texts(settings)) {
      words.push_back(std::string("--") + key.name);
      if (key.form != TestKeyForm::onOff) {
        words.push_back(text);
      }
    }
  }
  return words;
}

}  // namespace corvane::host
