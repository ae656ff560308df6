#include "host/cli/RunSettings.h"

#include "host/cli/TextFormat.h"
#include "host/cli/ValueParsers.h"

namespace corvane::host {
namespace {

/// Collects "--flag value" pairs.
class Words {
 public:
  void add(const char* flag, const std::string& value) {
    words_.emplace_back(flag);
    words_.push_back(value);
  }
  void addIf(bool wanted, const char* flag, const std::string& value) {
    if (wanted) {
      add(flag, value);
    }
  }
  void addCountIf(bool wanted, const char* flag, uint64_t value) { addIf(wanted, flag, std::to_string(value)); }
  void addBare(const char* word) { words_.emplace_back(word); }
  std::vector<std::string> take() { return std::move(words_); }

 private:
  std::vector<std::string> words_;
};

std::string rangeText(uint64_t from, uint64_t to) { return std::to_string(from) + ".." + std::to_string(to); }

}  // namespace

std::vector<std::string> repeatCommand(const RunSettings& settings) {
  const TestDefinition& test = settings.test;
  const TestDefinition usual;
  Words words;
  words.addBare("corvane");
  words.addBare("run");
  for (const std::string& address : test.driveAddresses) {
    words.add("--drive", address);
  }
  words.addIf(test.timeLimitMs != 0, "--time", durationFlagText(test.timeLimitMs));
  words.addCountIf(test.commandLimit != 0, "--commands", test.commandLimit);
  words.add("--seed", std::to_string(test.seed));
  words.addCountIf(test.queueDepth != usual.queueDepth, "--queue-depth", test.queueDepth);
  words.addIf(test.minBlocks != usual.minBlocks || test.maxBlocks != usual.maxBlocks, "--xfer",
              rangeText(test.minBlocks, test.maxBlocks));
  words.addIf(test.lbaAgent != usual.lbaAgent, "--lba-agent", test.lbaAgent);
  words.addIf(test.firstLba != 0 || test.endLba != 0, "--range",
              test.endLba == 0 ? std::to_string(test.firstLba) + ".." : rangeText(test.firstLba, test.endLba));
  const std::string mix = commandMixText(test.mix);
  words.addIf(mix != commandMixText(usual.mix), "--commands-of", mix);
  words.addIf(test.minAtomicBound != usual.minAtomicBound || test.maxAtomicBound != usual.maxAtomicBound,
              "--atomic-bound", rangeText(test.minAtomicBound, test.maxAtomicBound));
  words.addCountIf(test.e2ePercent != 0, "--e2e", test.e2ePercent);
  words.addIf(test.powerToggle != PowerToggle::off, "--power-toggle", powerToggleText(test.powerToggle));
  words.addCountIf(test.resetEveryCommands != 0, "--reset-every", test.resetEveryCommands);
  words.addCountIf(test.zoneResetEveryCommands != 0, "--zone-reset-every", test.zoneResetEveryCommands);
  words.addCountIf(test.invalidateEveryCommands != 0, "--invalidate-every", test.invalidateEveryCommands);
  if (test.forceUnitAccess) {
    words.addBare("--fua");
  }
  words.addCountIf(test.commandsPerSecond != 0, "--rate", test.commandsPerSecond);
  for (const FaultSpec& fault : test.faults) {
    words.add("--fault", faultSpecText(fault));
  }
  for (const auto& [name, value] : test.agentOptions) {
    words.add("--set", std::string(name).append("=").append(value));
  }
  words.addIf(!test.outputDirectory.empty(), "--output", test.outputDirectory);
  words.addIf(settings.pluginGiven, "--plugin", test.pluginPath);
  return words.take();
}

std::string replayLine(const RunSettings& settings) { return shellLine({"corvane", "replay", settings.jsonPath}); }

}  // namespace corvane::host
