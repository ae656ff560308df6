#include <algorithm>

#include "host/base/NearestName.h"
#include "host/cli/TestKey.h"
#include "host/cli/TestKeyHelpers.h"
#include "host/cli/UsageError.h"
#include "host/framework/TagPool.h"
#include "host/run/LbaAgent.h"

namespace corvane::host {
namespace {

constexpr const char* group = "The commands";

void takeMix(RunSettings& settings, const std::string& where, const std::string& text) {
  const CommandMix mix = parseCommandMix(where, text);
  const std::string named = where + " '" + text + "' ";
  if (mix.writeKinds() == 0) {
    throw UsageError(named + "writes nothing; add at least one of write, atomic, writesame and trim");
  }
  if (!mix.selects(CommandKind::read) && !mix.selects(CommandKind::verify)) {
    throw UsageError(named + "checks nothing; add at least one of read and verify");
  }
  settings.test.mix = mix;
}

void takeLbaAgent(RunSettings& settings, const std::string& where, const std::string& text) {
  const std::vector<std::string>& known = lbaAgentNames();
  if (std::find(known.begin(), known.end(), text) == known.end()) {
    std::string choices;
    for (const std::string& candidate : known) {
      choices += (choices.empty() ? "" : ", ") + candidate;
    }
    throw UsageError(where + " '" + text + "' is not known; choose of " + choices + didYouMean(text, known));
  }
  settings.test.lbaAgent = text;
}

std::string lbaAgentsText() {
  std::string text = "Where commands go:";
  for (const std::string& name : lbaAgentNames()) {
    text += "\n" + name + ": " + lbaAgentHelp(name) + ".";
  }
  return text + "\n";
}

template <auto min, auto max>
void takeBlocks(RunSettings& settings, const std::string& where, const std::string& text) {
  const BlockRange range = parseBlockRange(where, text);
  settings.test.*min = range.min;
  settings.test.*max = range.max;
}

template <auto min, auto max>
SettingTexts blocksText(const RunSettings& settings) {
  const TestDefinition& test = settings.test;
  return textIf(test.*min != usualTest().*min || test.*max != usualTest().*max, rangeText(test.*min, test.*max));
}

template <auto min, auto max>
TestKey blocksKey(const char* name, const char* help) {
  return {.name = name,
          .value = "MIN..MAX",
          .group = group,
          .help = withDefault(help, rangeText(usualTest().*min, usualTest().*max)),
          .take = takeBlocks<min, max>,
          .texts = blocksText<min, max>};
}

TestKey mixKey() {
  return {.name = "commands-of",
          .value = "LIST",
          .group = group,
          .help = withDefault("Kinds of commands, separated by commas: write, atomic, writesame, trim, read, verify; "
                              "with weights such as write=3,trim=1,read.",
                              commandMixText(usualTest().mix)),
          .take = takeMix,
          .texts = [](const RunSettings& settings) {
            const std::string mix = commandMixText(settings.test.mix);
            return textIf(mix != commandMixText(usualTest().mix), mix);
          }};
}

TestKey queueDepthKey() {
  return {.name = "queue-depth",
          .value = "N",
          .group = group,
          .help = withDefault("Commands outstanding at once, 1 to " + std::to_string(TagPool::maxTags) + ".",
                              std::to_string(usualTest().queueDepth)),
          .take =
              [](RunSettings& settings, const std::string& where, const std::string& text) {
                settings.test.queueDepth = parseCount32(where, text, 1, TagPool::maxTags);
              },
          .texts = numberText<&TestDefinition::queueDepth>};
}

TestKey lbaAgentKey() {
  return {.name = "lba-agent",
          .value = "NAME",
          .group = group,
          .help = withDefault(lbaAgentsText(), usualTest().lbaAgent),
          .take = takeLbaAgent,
          .texts = [](const RunSettings& settings) {
            return textIf(settings.test.lbaAgent != usualTest().lbaAgent, settings.test.lbaAgent);
          }};
}

TestKey e2eKey() {
  return {.name = "e2e",
          .value = "PERCENT",
          .group = group,
          .help = withDefault("Share of writes and verifies with end-to-end bytes, 0 to 100.",
                              std::to_string(usualTest().e2ePercent)),
          .take = [](RunSettings& settings, const std::string& where,
                     const std::string& text) { settings.test.e2ePercent = parsePercent(where, text); },
          .texts = numberText<&TestDefinition::e2ePercent>};
}

TestKey forceUnitAccessKey() {
  return {.name = "fua",
          .value = "",
          .group = group,
          .help = "Forces unit access on every command that writes.",
          .form = TestKeyForm::onOff,
          .take = [](RunSettings& settings, const std::string& /*where*/,
                     const std::string& text) { settings.test.forceUnitAccess = text == onText; },
          .texts = [](const RunSettings& settings) { return textIf(settings.test.forceUnitAccess, onText); }};
}

}  // namespace

void addCommandKeys(std::vector<TestKey>& keys) {
  keys.push_back(mixKey());
  keys.push_back(queueDepthKey());
  keys.push_back(blocksKey<&TestDefinition::minBlocks, &TestDefinition::maxBlocks>(
      "xfer", "Transfer lengths in blocks, both ends included; or one number."));
  keys.push_back(lbaAgentKey());
  keys.push_back(blocksKey<&TestDefinition::minAtomicBound, &TestDefinition::maxAtomicBound>(
      "atomic-bound", "Blocks per segment of an atomic write, both ends included."));
  keys.push_back(e2eKey());
  keys.push_back(forceUnitAccessKey());
  keys.push_back({.name = "rate",
                  .value = "N",
                  .group = group,
                  .help = "At most so many commands a second and drive. Default: no limit.",
                  .take = takeCount<&TestDefinition::commandsPerSecond>,
                  .texts = numberText<&TestDefinition::commandsPerSecond>});
}

}  // namespace corvane::host
