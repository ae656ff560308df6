#include "host/cli/RunCommandLine.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <random>

#include "host/base/NearestName.h"
#include "host/cli/FlagValues.h"
#include "host/cli/PluginPath.h"
#include "host/cli/UsageError.h"
#include "host/cli/ValueParsers.h"
#include "host/framework/TagPool.h"
#include "host/run/LbaAgent.h"

namespace corvane::host {
namespace {

constexpr const char* testGroup = "What is tested, and how long";
constexpr const char* commandGroup = "The commands";
constexpr const char* stressGroup = "Stress";
constexpr const char* agentGroup = "The agent";
constexpr const char* outputGroup = "Output";

constexpr const char* examples = R"(Examples:
  A simulated drive of 1 GiB, ten seconds:
    corvane run --drive sim:1g
  A file of 256 MiB and a simulated drive, side by side:
    corvane run --drive file:/tmp/drive.img,size=256m --drive sim:1g --time 1m
  Three writes to one trim, reads and verifies, repeatable:
    corvane run --drive sim:1g --commands 100000 --seed 1 --commands-of write=3,trim,read,verify
  Atomic writes with power cuts:
    corvane run --drive sim:1g --commands-of atomic,read --power-toggle nosync --set "PowerToggle Freq=1"

Exit status: 0 clean, 1 data failure, 2 wrong command line or configuration, 3 drive or transport failed,
4 internal error. SIGINT or SIGTERM ends a test early, with its summary; a second one kills it.
'corvane drives' lists the kinds of drives, 'corvane options' the agent's options.)";

std::string withDefault(const std::string& text, const std::string& value) { return text + " Default: " + value + "."; }

std::string rangeText(uint32_t min, uint32_t max) { return std::to_string(min) + ".." + std::to_string(max); }

std::string lbaAgentsText() {
  std::string text = "Where commands go:";
  for (const std::string& name : lbaAgentNames()) {
    text += "\n" + name + ": " + lbaAgentHelp(name) + ".";
  }
  return text + "\n";
}

void checkMix(std::string_view flag, const std::string& text, const CommandMix& mix) {
  const std::string named = std::string(flag) + " '" + text + "' ";
  if (mix.writeKinds() == 0) {
    throw UsageError(named + "writes nothing; add at least one of write, atomic, writesame and trim");
  }
  if (!mix.selects(CommandKind::read) && !mix.selects(CommandKind::verify)) {
    throw UsageError(named + "checks nothing; add at least one of read and verify");
  }
}

void checkLbaAgent(std::string_view flag, const std::string& name) {
  const std::vector<std::string>& known = lbaAgentNames();
  if (std::find(known.begin(), known.end(), name) != known.end()) {
    return;
  }
  std::string choices;
  for (const std::string& candidate : known) {
    choices += (choices.empty() ? "" : ", ") + candidate;
  }
  throw UsageError(std::string(flag) + " '" + name + "' is not known; choose of " + choices + didYouMean(name, known));
}

FaultSpec faultFrom(std::string_view flag, const std::string& text) {
  try {
    return parseFaultSpec(text);
  } catch (const FaultSpecError& error) {
    throw UsageError(std::string(flag) + ": " + error.what());
  }
}

}  // namespace

RunCommandLine::RunCommandLine(CLI::App& run) {
  addTestFlags(run);
  addCommandFlags(run);
  addFaultFlag(run);
  addAgentFlags(run);
  addOutputFlags(run);
  run.footer(examples);
}

void RunCommandLine::add(CLI::App& run, const char* group, const char* flag, const char* value, std::string_view help) {
  addCollected(run, group, flag, value, help, given_[flag]);
}

void RunCommandLine::addTestFlags(CLI::App& run) {
  add(run, testGroup, "--drive", "ADDRESS",
      "A drive to test, such as sim:1g or file:PATH,size=256m. Its content is overwritten. Give it again for further "
      "drives, which are tested side by side. Required.");
  add(run, testGroup, "--time", "TIME",
      "Ends after so long: 500ms, 30s, 10m, 2h or 1d. Default: 10s, when --commands is not given either.");
  add(run, testGroup, "--commands", "N", "Ends after so many commands a drive; 1e6, 500k and 2m are understood.");
  add(run, testGroup, "--range", "FIRST..END",
      "The LBAs that are tested; END is not included, FIRST.. goes up to the drive's end. Default: the whole drive.");
  add(run, testGroup, "--seed", "N",
      "Everything random follows from it; decimal, or 0x and hexadecimal digits. Default: drawn, and printed so that "
      "the run can be repeated.");
}

void RunCommandLine::addCommandFlags(CLI::App& run) {
  const TestDefinition usual;
  add(run, commandGroup, "--commands-of", "LIST",
      withDefault("Kinds of commands, separated by commas: write, atomic, writesame, trim, read, verify; with weights "
                  "such as write=3,trim=1,read.",
                  commandMixText(usual.mix)));
  add(run, commandGroup, "--queue-depth", "N",
      withDefault("Commands outstanding at once, 1 to " + std::to_string(TagPool::maxTags) + ".",
                  std::to_string(usual.queueDepth)));
  add(run, commandGroup, "--xfer", "MIN..MAX",
      withDefault("Transfer lengths in blocks, both ends included; or one number.",
                  rangeText(usual.minBlocks, usual.maxBlocks)));
  add(run, commandGroup, "--lba-agent", "NAME", withDefault(lbaAgentsText(), usual.lbaAgent));
  add(run, commandGroup, "--atomic-bound", "MIN..MAX",
      withDefault("Blocks per segment of an atomic write, both ends included.",
                  rangeText(usual.minAtomicBound, usual.maxAtomicBound)));
  add(run, commandGroup, "--e2e", "PERCENT",
      withDefault("Share of writes and verifies with end-to-end bytes, 0 to 100.", std::to_string(usual.e2ePercent)));
  run.add_flag("--fua", forceUnitAccess_, "Forces unit access on every command that writes.")
      ->disable_flag_override()
      ->group(commandGroup);
  add(run, commandGroup, "--rate", "N", "At most so many commands a second and drive. Default: no limit.");
  add(run, stressGroup, "--reset-every", "N",
      "Resets the device each time so many commands were issued. Default: never.");
  add(run, stressGroup, "--zone-reset-every", "N",
      "Resets a zone each time so many commands were issued; drives with zones only, and a must on those that are "
      "written at their zones' write pointers. Default: never.");
  add(run, stressGroup, "--invalidate-every", "N",
      "Invalidates a short range each time so many commands were issued, after which its old content must not come "
      "back. Default: never.");
  add(run, stressGroup, "--power-toggle", "HOW",
      "Cuts the power as often as the option \"PowerToggle Freq\" says: nosync at once, sync after a cache flush, off "
      "never. Default: off.");
}

void RunCommandLine::addFaultFlag(CLI::App& run) {
  add(run, stressGroup, "--fault", "FAULT",
      "Lets the drives do something wrong on purpose, to see what the test finds: CLASS:at=command:N or CLASS:rate=R, "
      "such as lost-write:at=command:1000 ('corvane faults' lists the classes). What was done stands in the JSON "
      "document. Give it again for further faults.");
}

void RunCommandLine::addAgentFlags(CLI::App& run) {
  add(run, agentGroup, "--set", "\"NAME=VALUE\"",
      "Sets an option of the agent ('corvane options' lists them). Give it again for further options.");
  add(run, agentGroup, "--plugin", "FILE", "The agent's library. Default: the one that comes with the program.");
}

void RunCommandLine::addOutputFlags(CLI::App& run) {
  add(run, outputGroup, "--output", "DIR",
      withDefault("Folder for reports and dumps; created when it is not there.", usualOutputDirectory));
  add(run, outputGroup, "--json", "FILE",
      withDefault("The result for programs; replaced when it is there.", std::string("DIR/") + usualJsonName));
  run.add_flag("--quiet", quiet_,
               "Says nothing unless something was found or failed, or the default output folder is used.")
      ->disable_flag_override()
      ->group(outputGroup);
}

const std::vector<std::string>& RunCommandLine::all(std::string_view flag) const { return given_.find(flag)->second; }

const std::string* RunCommandLine::once(std::string_view flag) const { return onlyValue(flag, all(flag)); }

RunSettings RunCommandLine::settings() const {
  RunSettings settings;
  TestDefinition& test = settings.test;
  test.driveAddresses = all("--drive");
  if (test.driveAddresses.empty()) {
    throw UsageError("--drive is missing; name a drive, such as --drive sim:1g or --drive file:PATH,size=256m");
  }
  for (const std::string& address : test.driveAddresses) {
    checkNotEmpty("--drive", address, "a drive, such as sim:1g or file:PATH,size=256m");
  }
  readLimits(test);
  readCommands(test);
  readStress(test);
  for (const std::string& text : all("--fault")) {
    test.faults.push_back(faultFrom("--fault", text));
  }
  for (const std::string& text : all("--set")) {
    test.agentOptions.push_back(parseOptionSetting("--set", text));
  }
  readOutput(settings);
  if (const std::string* text = once("--seed")) {
    test.seed = parseNumber("--seed", *text);
  } else {
    test.seed = std::random_device()();
    settings.seedDrawn = true;
  }
  return settings;
}

void RunCommandLine::readLimits(TestDefinition& test) const {
  if (const std::string* text = once("--time")) {
    test.timeLimitMs = parseDurationMs("--time", *text);
  }
  if (const std::string* text = once("--commands")) {
    test.commandLimit = parseCount("--commands", *text, 1);
  }
  if (test.timeLimitMs == 0 && test.commandLimit == 0) {
    test.timeLimitMs = usualTimeLimitMs;
  }
  if (const std::string* text = once("--range")) {
    const LbaRange range = parseLbaRange("--range", *text);
    test.firstLba = range.first;
    test.endLba = range.end;
  }
}

void RunCommandLine::readCommands(TestDefinition& test) const {
  if (const std::string* text = once("--commands-of")) {
    test.mix = parseCommandMix("--commands-of", *text);
    checkMix("--commands-of", *text, test.mix);
  }
  if (const std::string* text = once("--queue-depth")) {
    test.queueDepth = parseCount32("--queue-depth", *text, 1, TagPool::maxTags);
  }
  if (const std::string* text = once("--xfer")) {
    const BlockRange range = parseBlockRange("--xfer", *text);
    test.minBlocks = range.min;
    test.maxBlocks = range.max;
  }
  if (const std::string* text = once("--lba-agent")) {
    checkLbaAgent("--lba-agent", *text);
    test.lbaAgent = *text;
  }
  if (const std::string* text = once("--atomic-bound")) {
    const BlockRange range = parseBlockRange("--atomic-bound", *text);
    test.minAtomicBound = range.min;
    test.maxAtomicBound = range.max;
  }
  if (const std::string* text = once("--e2e")) {
    test.e2ePercent = parsePercent("--e2e", *text);
  }
  test.forceUnitAccess = forceUnitAccess_;
  if (const std::string* text = once("--rate")) {
    test.commandsPerSecond = parseCount("--rate", *text, 1);
  }
}

void RunCommandLine::readStress(TestDefinition& test) const {
  if (const std::string* text = once("--reset-every")) {
    test.resetEveryCommands = parseCount("--reset-every", *text, 1);
  }
  if (const std::string* text = once("--zone-reset-every")) {
    test.zoneResetEveryCommands = parseCount("--zone-reset-every", *text, 1);
  }
  if (const std::string* text = once("--invalidate-every")) {
    test.invalidateEveryCommands = parseCount("--invalidate-every", *text, 1);
  }
  if (const std::string* text = once("--power-toggle")) {
    test.powerToggle = parsePowerToggle("--power-toggle", *text);
  }
}

void RunCommandLine::readOutput(RunSettings& settings) const {
  TestDefinition& test = settings.test;
  test.outputDirectory = usualOutputDirectory;
  if (const std::string* text = once("--output")) {
    checkNotEmpty("--output", *text, "a folder");
    const size_t end = text->find_last_not_of('/');
    test.outputDirectory = end == std::string::npos ? "/" : text->substr(0, end + 1);
    settings.outputGiven = true;
  }
  settings.jsonPath = test.outputDirectory + (test.outputDirectory.back() == '/' ? "" : "/") + usualJsonName;
  if (const std::string* text = once("--json")) {
    checkNotEmpty("--json", *text, "a file");
    settings.jsonPath = *text;
    settings.jsonGiven = true;
  }
  test.pluginPath = defaultPluginPath();
  if (const std::string* text = once("--plugin")) {
    checkNotEmpty("--plugin", *text, "an agent's library");
    test.pluginPath = pluginPathFrom(*text);
    settings.pluginGiven = true;
  }
  settings.quiet = quiet_;
}

}  // namespace corvane::host
