#include "host/cli/RunSettings.h"

#include "host/base/TextFormat.h"
#include "host/cli/TestKey.h"

namespace corvane::host {

std::string nameOf(const RunSettings& settings, std::string_view key) {
  const auto place = settings.places.find(key);
  return place == settings.places.end() ? "--" + std::string(key) : place->second;
}

std::string nameOfEntry(const RunSettings& settings, const std::string& key, const std::string& entry) {
  const auto place = settings.entryPlaces.find({key, entry});
  return place == settings.entryPlaces.end() ? nameOf(settings, key) : place->second;
}

std::string nameOfJson(const RunSettings& settings) { return nameOf(settings, settings.jsonGiven ? "json" : "output"); }

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

std::string replayLine(const RunSettings& settings) { return shellLine({"corvane", "replay", settings.jsonPath}); }

}  // namespace corvane::host
