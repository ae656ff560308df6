#include "host/cli/ReplayCommand.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <filesystem>
#include <system_error>

#include "host/base/TextFormat.h"
#include "host/cli/FlagValues.h"
#include "host/cli/RunCommand.h"
#include "host/cli/UsageError.h"
#include "host/cli/ValueParsers.h"
#include "host/cli/Version.h"
#include "host/drive/DriveAddress.h"

namespace corvane::host {
namespace {

constexpr const char* group = "Replay";
constexpr const char* footer = R"(Example:
  corvane run --drive sim:16m --commands 20000 --seed 3 --fault lost-write:at=command:1000
  corvane replay corvane-out/result.json

The test is run from its start with the same seed up to the step in which the finding came. On simulated drives it
comes again at the same command, but for what follows the clock; the output says where that applies. The content of
the drives is overwritten as in the run.

Exit status: as of 'corvane run', so 1 when something was found again and 0 when nothing was.)";

std::string lbaText(std::optional<uint64_t> lba) { return lba ? std::to_string(*lba) : "unknown"; }

const Finding* findingOn(uint32_t driveIndex, const RunResult& result) {
  const auto found = std::find_if(result.findings.begin(), result.findings.end(),
                                  [driveIndex](const Finding& finding) { return finding.driveIndex == driveIndex; });
  return found == result.findings.end() ? nullptr : &*found;
}

/// Reports of the run have the names that those of its replay will have.
void checkOtherFolder(const ReplayRequest& request, const RunSettings& settings) {
  const std::filesystem::path ofDocument = std::filesystem::path(request.document).parent_path();
  for (const std::filesystem::path& taken : {ofDocument.empty() ? std::filesystem::path(".") : ofDocument,
                                             std::filesystem::path(settings.test.outputDirectory)}) {
    std::error_code missing;
    if (std::filesystem::equivalent(taken, request.output, missing) && !missing) {
      throw UsageError("--output '" + request.output +
                       "' is the folder of the run itself, whose files would be replaced; name another one");
    }
  }
}

void introduceReplay(Console& out, const ReplayRequest& request, const RecordedFinding& wanted) {
  out.line("Replay of finding " + std::to_string(request.finding) + " in " + printable(request.document) + ": drive " +
           printable(wanted.drive) + ", command " + std::to_string(wanted.commandNumber) + ", LBA " +
           lbaText(wanted.lba));
}

}  // namespace

ReplayCommandLine::ReplayCommandLine(CLI::App& replay) {
  replay.add_option("FILE", files_, "The JSON document of a run")->type_name("")->expected(1)->allow_extra_args(false);
  addCollected(replay, group, "--finding", "N", "Which finding of the document, counted from 1. Default: 1.", finding_);
  addCollected(replay, group, "--output", "DIR",
               std::string("Folder for reports, dumps and the result. Default: ") + usualReplayDirectory + ".",
               output_);
  addCollected(replay, group, "--plugin", "FILE", "The agent's library. Default: the one of the run.", plugin_);
  addOverwrite(replay, group, overwrite_);
  replay.footer(footer);
}

ReplayRequest ReplayCommandLine::request() const {
  ReplayRequest request;
  if (files_.empty()) {
    throw UsageError(
        "no document is named; give the JSON document of a run, as in corvane replay "
        "corvane-out/result.json");
  }
  request.document = files_.front();
  if (const std::string* text = onlyValue("--finding", finding_)) {
    request.finding = parseCount("--finding", *text, 1);
  }
  if (const std::string* text = onlyValue("--output", output_)) {
    checkNotEmpty("--output", *text, "a folder");
    request.output = *text;
  }
  if (const std::string* text = onlyValue("--plugin", plugin_)) {
    checkNotEmpty("--plugin", *text, "an agent's library");
    request.plugin = *text;
  }
  request.overwrite = overwrite_;
  return request;
}

RunSettings replaySettings(const RecordedRun& document, const ReplayRequest& request) {
  const std::string named = "document '" + request.document + "' ";
  if (document.findings.empty()) {
    throw UsageError(named +
                     "holds no finding, so there is nothing to replay; name the document of a run that found "
                     "something");
  }
  if (request.finding > document.findings.size()) {
    throw UsageError("--finding '" + std::to_string(request.finding) + "' is too large; " + named + "holds " +
                     std::to_string(document.findings.size()));
  }
  const RecordedFinding& wanted = document.findings[request.finding - 1];
  if (wanted.step == 0) {
    throw UsageError(named + "does not say at which step that was found; run the test again to get one that does");
  }
  checkOtherFolder(request, document.test.settings());
  GivenTest test = document.test;
  for (const char* limit : {"time", "commands", "steps", "output"}) {
    test.drop(limit);
  }
  test.give(*testKeyNamed("steps"), std::to_string(wanted.step), named + "step");
  test.give(*testKeyNamed("output"), request.output, "--output");
  if (!request.plugin.empty()) {
    test.drop("plugin");
    test.give(*testKeyNamed("plugin"), request.plugin, "--plugin");
  }
  RunSettings settings = test.settings();
  settings.test.overwriting = request.overwrite ? Overwriting::ofAnything : Overwriting::ofEmptyDrives;
  return settings;
}

std::vector<std::string> unrepeatable(const TestDefinition& test) {
  std::vector<std::string> sentences;
  if (test.powerToggle != PowerToggle::off) {
    sentences.emplace_back(
        "the power is cut by the clock (\"PowerToggle Freq\" counts seconds), so the cuts fall on other commands than "
        "in the run");
  }
  for (const std::string& address : test.driveAddresses) {
    if (!address.starts_with("sim:")) {
      sentences.push_back("drive '" + maskedAddress(address) +
                          "' answers in an order of its own, so other commands may follow than in the run");
    }
  }
  const bool crossTalk = std::any_of(test.faults.begin(), test.faults.end(),
                                     [](const FaultSpec& fault) { return fault.what == FaultClass::crossTalk; });
  if (crossTalk) {
    sentences.emplace_back("cross-talk carries data from one drive to another, whose threads keep their own pace");
  }
  return sentences;
}

std::string replayVerdict(const RecordedFinding& wanted, const RunResult& result) {
  const Finding* found = findingOn(wanted.driveIndex, result);
  if (found == nullptr) {
    return "Replay: nothing was found on drive " + printable(wanted.drive) + " up to step " +
           std::to_string(wanted.step);
  }
  const std::string command = std::to_string(found->moment.commandNumber);
  std::string differences;
  const auto differ = [&differences](const char* what, const std::string& now, const std::string& then) {
    if (now != then) {
      differences += (differences.empty() ? " at " : ", ") + std::string(what) + " " + now + " instead of " + then;
    }
  };
  differ("command", command, std::to_string(wanted.commandNumber));
  differ("LBA", lbaText(found->lba), lbaText(wanted.lba));
  differ("status", std::to_string(found->agentStatus), std::to_string(wanted.agentStatus));
  if (!differences.empty()) {
    return "Replay: another finding," + differences;
  }
  return "Replay: the same finding at command " + command + ", LBA " + lbaText(found->lba);
}

int runReplay(const ReplayRequest& request, Console& out) {
  const RecordedRun document = readRecordedRun(request.document);
  const RunSettings settings = replaySettings(document, request);
  const RecordedFinding& wanted = document.findings[request.finding - 1];
  std::vector<std::string> notes = unrepeatable(settings.test);
  if (document.version != programVersion()) {
    notes.push_back("version " + document.version + " made the run, and this is version " + programVersion() +
                    ", which may choose other commands");
  }
  introduceReplay(out, request, wanted);
  for (const std::string& note : notes) {
    out.line("note: " + printable(note));
  }
  return runTest(settings, out, {}, [&](const RunResult& result) {
    const std::string verdict = replayVerdict(wanted, result);
    const bool same = verdict.starts_with("Replay: the same");
    out.line(verdict + (same || notes.empty() ? "" : "; see the notes at the beginning"));
  });
}

}  // namespace corvane::host
