#include "host/cli/GivenTest.h"

#include <algorithm>
#include <random>
#include <utility>

#include "host/cli/PluginPath.h"
#include "host/cli/UsageError.h"
#include "host/cli/ValueParsers.h"
#include "host/run/HostClock.h"

namespace corvane::host {
namespace {

/// The name of NAME=VALUE, as it is used: without blanks around it.
std::string entryName(const GivenTest::Text& text) { return splitNamedValue(text.text).first; }

/// A range with an end and a size contradict each other; whichever was said last counts, and of the range only its end
/// goes.
void settleEnd(GivenTest& given, const GivenTest& stronger) {
  const std::vector<GivenTest::Text>& range = given.of("range");
  if (range.empty() || given.of("size").empty()) {
    return;
  }
  const size_t dots = range.front().text.find("..");
  const bool hasEnd = dots != std::string::npos && dots + 2 < range.front().text.size();
  if (!stronger.of("range").empty() && stronger.of("size").empty() && hasEnd) {
    given.drop("size");
  } else if (stronger.of("range").empty() && !stronger.of("size").empty() && hasEnd) {
    const GivenTest::Text open{range.front().text.substr(0, dots + 2), range.front().where};
    given.drop("range");
    given.give(*testKeyNamed("range"), open.text, open.where);
  }
}

void checkDrives(const GivenTest& given) {
  if (given.of("drive").empty()) {
    throw UsageError("--drive is missing; name a drive, such as --drive sim:1g or --drive file:PATH,size=256m");
  }
}

void checkEnd(const RunSettings& settings) {
  if (settings.test.endLba != 0 && settings.test.size.any()) {
    throw UsageError(nameOf(settings, "size") + " '" + driveShareText(settings.test.size) + "' and the end of " +
                     nameOf(settings, "range") + " both say where the test ends; leave one out, or give " +
                     std::to_string(settings.test.firstLba) + ".. as the range");
  }
}

void fillIn(RunSettings& settings, bool seedGiven) {
  TestDefinition& test = settings.test;
  if (test.timeLimitMs == 0 && test.commandLimit == 0 && test.stepLimit == 0) {
    test.timeLimitMs = usualTimeLimitMs;
  }
  if (!settings.outputGiven) {
    test.outputDirectory = usualOutputDirectory;
  }
  if (!settings.jsonGiven) {
    settings.jsonPath = test.outputDirectory + (test.outputDirectory.back() == '/' ? "" : "/") + usualJsonName;
  }
  if (!settings.pluginGiven) {
    test.pluginPath = defaultPluginPath();
  }
  if (!seedGiven) {
    test.seed = std::random_device()();
    settings.seedDrawn = true;
  }
}

}  // namespace

void GivenTest::give(const TestKey& key, std::string text, std::string where) {
  texts_[key.name].push_back({std::move(text), std::move(where)});
}

void GivenTest::drop(std::string_view key) {
  if (const auto found = texts_.find(key); found != texts_.end()) {
    texts_.erase(found);
  }
}

const std::vector<GivenTest::Text>& GivenTest::of(std::string_view key) const {
  static const std::vector<Text> none;
  const auto found = texts_.find(key);
  return found == texts_.end() ? none : found->second;
}

void GivenTest::overruleBy(const GivenTest& other) {
  for (const auto& entry : other.texts_) {
    const std::vector<Text>& stronger = entry.second;
    std::vector<Text>& here = texts_[entry.first];
    if (testKeyNamed(entry.first)->form == TestKeyForm::table) {
      std::erase_if(here, [&](const Text& old) {
        return std::any_of(stronger.begin(), stronger.end(),
                           [&](const Text& text) { return entryName(text) == entryName(old); });
      });
      here.insert(here.end(), stronger.begin(), stronger.end());
    } else {
      here = stronger;
    }
  }
  settleEnd(*this, other);
}

RunSettings GivenTest::settings() const {
  checkDrives(*this);
  RunSettings settings;
  settings.startedUs = HostClock::real().wallUs();
  for (const TestKey& key : testKeys()) {
    for (const Text& text : of(key.name)) {
      key.take(settings, text.where, text.text);
      settings.places[key.name] = text.where;
      settings.entryPlaces[{key.name, key.form == TestKeyForm::table ? entryName(text) : text.text}] = text.where;
    }
  }
  checkEnd(settings);
  fillIn(settings, !of("seed").empty());
  return settings;
}

GivenTest givenBy(const RunSettings& settings) {
  GivenTest given;
  for (const TestKey& key : testKeys()) {
    for (std::string& text : key.texts(settings)) {
      given.give(key, std::move(text), std::string("--") + key.name);
    }
  }
  return given;
}

}  // namespace corvane::host
