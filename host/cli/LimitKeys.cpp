#include "host/base/CpuList.h"
#include "host/cli/FlagValues.h"
#include "host/cli/TestKey.h"
#include "host/cli/TestKeyHelpers.h"
#include "host/drive/DriveAddress.h"

namespace corvane::host {
namespace {

constexpr const char* group = "What is tested, and how long";

void takeDrive(RunSettings& settings, const std::string& where, const std::string& text) {
  checkNotEmpty(where, text, "a drive, such as sim:1g or file:PATH,size=256m");
  settings.test.driveAddresses.push_back(text);
}

void takeRange(RunSettings& settings, const std::string& where, const std::string& text) {
  const LbaRange range = parseLbaRange(where, text);
  settings.test.firstLba = range.first;
  settings.test.endLba = range.end;
}

SettingTexts rangeTexts(const RunSettings& settings) {
  const TestDefinition& test = settings.test;
  return textIf(test.firstLba != 0 || test.endLba != 0,
                test.endLba == 0 ? std::to_string(test.firstLba) + ".." : rangeText(test.firstLba, test.endLba));
}

/// What is printed and kept; no password is.
SettingTexts driveTexts(const RunSettings& settings) {
  SettingTexts texts;
  for (const std::string& address : settings.test.driveAddresses) {
    texts.push_back(maskedAddress(address));
  }
  return texts;
}

TestKey driveKey() {
  return {
      .name = "drive",
      .value = "ADDRESS",
      .group = group,
      .help =
          "A drive to test, such as /dev/sdx, sim:1g or file:PATH,size=256m; 'corvane drives' explains every kind of "
          "address and its keys. Its content is overwritten. Give it again for "
          "further drives, which are tested side by side. Required.",
      .form = TestKeyForm::repeatable,
      .take = takeDrive,
      .texts = driveTexts};
}

void addEnds(std::vector<TestKey>& keys) {
  keys.push_back({.name = "time",
                  .value = "TIME",
                  .group = group,
                  .help = "Ends after so long: 500ms, 30s, 10m, 2h or 1d. Default: 10s, when neither --commands nor "
                          "--steps is given.",
                  .take = [](RunSettings& settings, const std::string& where,
                             const std::string& text) { settings.test.timeLimitMs = parseDurationMs(where, text); },
                  .texts =
                      [](const RunSettings& settings) {
                        return textIf(settings.test.timeLimitMs != 0, durationFlagText(settings.test.timeLimitMs));
                      }});
  keys.push_back({.name = "commands",
                  .value = "N",
                  .group = group,
                  .help = "Ends after so many commands a drive; 1e6, 500k and 2m are understood.",
                  .take = takeCount<&TestDefinition::commandLimit>,
                  .texts = numberText<&TestDefinition::commandLimit>});
  keys.push_back({.name = "steps",
                  .value = "N",
                  .group = group,
                  .help = "Ends after so many steps of the test's loop a drive, each of which issues at most one "
                          "command; for repeating a run up to a moment.",
                  .take = takeCount<&TestDefinition::stepLimit>,
                  .texts = numberText<&TestDefinition::stepLimit>});
}

/// Not among the ends, as no good test ends by it.
TestKey watchdogKey() {
  return {.name = "watchdog",
          .value = "TIME",
          .group = group,
          .help =
              "How long a drive may take for one command. One that takes longer hangs: the commands that it has not "
              "answered are named, it is reset, and its test ends with exit status 3. Default: 60s.",
          .take =
              [](RunSettings& settings, const std::string& where, const std::string& text) {
                settings.test.watchdogMs = parseDurationMs(where, text, "would end every test at once", "60s");
              },
          .texts =
              [](const RunSettings& settings) {
                return textIf(settings.test.watchdogMs != usualTest().watchdogMs,
                              durationFlagText(settings.test.watchdogMs));
              }};
}

void addPlaces(std::vector<TestKey>& keys) {
  keys.push_back({.name = "range",
                  .value = "FIRST..END",
                  .group = group,
                  .help = "The LBAs that are tested; END is not included, FIRST.. goes up to the drive's end. Default: "
                          "the whole drive.",
                  .take = takeRange,
                  .texts = rangeTexts});
  keys.push_back({.name = "size",
                  .value = "SIZE",
                  .group = group,
                  .help =
                      "How much of each drive is tested, from the range's first LBA on: bytes with the binary units "
                      "of 64k, 256m, 1g and 2t, or a share such as 10%. Default: up to the drive's end.",
                  .take = [](RunSettings& settings, const std::string& where,
                             const std::string& text) { settings.test.size = parseDriveShare(where, text); },
                  .texts =
                      [](const RunSettings& settings) {
                        return textIf(settings.test.size.any(), driveShareText(settings.test.size));
                      }});
}

/// It is kept with the others, though a replay elsewhere may have to leave it out: it says how the figures came about.
TestKey pinKey() {
  return {.name = "pin",
          .value = "CPUS",
          .group = group,
          .help =
              "Processors for the drives' threads, such as 0,2-5: the first drive's thread runs on the first of "
              "them only, and so on, in turn when there are more drives. Threads that work for a drive beside its "
              "own are not pinned. Default: wherever the system puts them.",
          .take = [](RunSettings& settings, const std::string& where,
                     const std::string& text) { settings.test.pinnedCpus = parseCpus(where, text); },
          .texts =
              [](const RunSettings& settings) {
                return textIf(!settings.test.pinnedCpus.empty(), cpuListText(settings.test.pinnedCpus));
              }};
}

}  // namespace

void addLimitKeys(std::vector<TestKey>& keys) {
  keys.push_back(driveKey());
  addEnds(keys);
  keys.push_back(watchdogKey());
  addPlaces(keys);
  keys.push_back(
      {.name = "seed",
       .value = "N",
       .group = group,
       .help = "Everything random follows from it; decimal, or 0x and hexadecimal digits. Default: drawn, "
               "and printed so that the run can be repeated.",
       .take = [](RunSettings& settings, const std::string& where,
                  const std::string& text) { settings.test.seed = parseNumber(where, text); },
       .texts = [](const RunSettings& settings) { return SettingTexts{std::to_string(settings.test.seed)}; }});
  keys.push_back(pinKey());
}

}  // namespace corvane::host
