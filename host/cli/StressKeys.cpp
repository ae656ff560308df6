#include "host/cli/TestKey.h"
#include "host/cli/TestKeyHelpers.h"
#include "host/cli/UsageError.h"

namespace corvane::host {
namespace {

constexpr const char* group = "Stress";

/// Something that happens each time so many commands were issued.
template <auto member>
TestKey everyKey(const char* name, const char* help) {
  return {
      .name = name, .value = "N", .group = group, .help = help, .take = takeCount<member>, .texts = numberText<member>};
}

TestKey powerToggleKey() {
  return {.name = "power-toggle",
          .value = "HOW",
          .group = group,
          .help =
              "Cuts the power as often as the option \"PowerToggle Freq\" says: nosync at once, sync after a cache "
              "flush, off never. Default: off.",
          .take = [](RunSettings& settings, const std::string& where,
                     const std::string& text) { settings.test.powerToggle = parsePowerToggle(where, text); },
          .texts =
              [](const RunSettings& settings) {
                const PowerToggle toggle = settings.test.powerToggle;
                return textIf(toggle != usualTest().powerToggle, powerToggleText(toggle));
              }};
}

void takeFault(RunSettings& settings, const std::string& where, const std::string& text) {
  try {
    settings.test.faults.push_back(parseFaultSpec(text));
  } catch (const FaultSpecError& error) {
    throw UsageError(where + ": " + error.what());
  }
}

SettingTexts faultTexts(const RunSettings& settings) {
  SettingTexts texts;
  for (const FaultSpec& fault : settings.test.faults) {
    texts.push_back(faultSpecText(fault));
  }
  return texts;
}

}  // namespace

void addStressKeys(std::vector<TestKey>& keys) {
  keys.push_back(everyKey<&TestDefinition::resetEveryCommands>(
      "reset-every", "Resets the device each time so many commands were issued. Default: never."));
  keys.push_back(everyKey<&TestDefinition::zoneResetEveryCommands>(
      "zone-reset-every",
      "Resets a zone each time so many commands were issued; drives with zones only, and a must on those that are "
      "written at their zones' write pointers. Default: never."));
  keys.push_back(everyKey<&TestDefinition::invalidateEveryCommands>(
      "invalidate-every",
      "Invalidates a short range each time so many commands were issued, after which its old content must not come "
      "back. Default: never."));
  keys.push_back(powerToggleKey());
  keys.push_back({.name = "fault",
                  .value = "FAULT",
                  .group = group,
                  .help = "Lets the drives do something wrong on purpose, to see what the test finds: "
                          "CLASS:at=command:N or CLASS:rate=R, such as lost-write:at=command:1000 ('corvane faults' "
                          "lists the classes). What was done stands in the JSON document. Give it again for further "
                          "faults.",
                  .form = TestKeyForm::repeatable,
                  .take = takeFault,
                  .texts = faultTexts});
}

}  // namespace corvane::host
