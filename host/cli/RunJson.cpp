#include "host/cli/RunJson.h"

#include <nlohmann/json.hpp>

#include "host/base/TextFormat.h"
#include "host/cli/ExitStatus.h"
#include "host/cli/ExplanationJson.h"
#include "host/cli/FiguresJson.h"
#include "host/cli/InjectionJson.h"
#include "host/cli/RecordedRun.h"
#include "host/cli/RunSummary.h"
#include "host/cli/TestJson.h"
#include "host/cli/Version.h"

namespace corvane::host {
namespace {

using Json = nlohmann::ordered_json;

std::string documentText(const Json& document) {
  constexpr int indent = 2;
  return document.dump(indent, ' ', false, Json::error_handler_t::replace) + "\n";
}

Json checkedJson(const CheckedBlocks& checked) {
  Json several = Json::object();
  for (uint32_t outcomes = 2; outcomes <= CheckedBlocks::mostOutcomes; ++outcomes) {
    if (checked.severalOutcomes[outcomes] != 0) {
      several[std::to_string(outcomes)] = checked.severalOutcomes[outcomes];
    }
  }
  Json notCheckable = Json::object();
  for (size_t reason = 0; reason < uncheckableReasons; ++reason) {
    if (checked.notCheckable[reason] != 0) {
      notCheckable[uncheckableText(static_cast<Uncheckable>(reason))] = checked.notCheckable[reason];
    }
  }
  Json object = Json::object();
  object["oneOutcome"] = checked.oneOutcome;
  object["severalOutcomes"] = std::move(several);
  object["notCheckable"] = std::move(notCheckable);
  return object;
}

Json messagesJson(const AgentMessages& messages) {
  Json lines = Json::array();
  for (const AgentMessages::Line& line : messages.lines) {
    lines.push_back({{"level", line.level}, {"text", line.text}});
  }
  Json object = Json::object();
  object["warnings"] = messages.warnings;
  object["errors"] = messages.errors;
  object["lines"] = std::move(lines);
  return object;
}

Json latencyJson(const LatencyHistogram& histogram) {
  Json object = Json::object();
  object["count"] = histogram.count();
  object["minUs"] = histogram.minUs();
  object["meanUs"] = histogram.meanUs();
  object["p50Us"] = histogram.percentileUs(50);
  object["p90Us"] = histogram.percentileUs(90);
  object["p99Us"] = histogram.percentileUs(99);
  object["p999Us"] = histogram.percentileUs(99.9);
  object["maxUs"] = histogram.maxUs();
  object["buckets"] = histogram.buckets();
  return object;
}

Json latenciesJson(const CommandJournal* journal) {
  Json object = Json::object();
  for (uint32_t kind = 0; journal != nullptr && kind < commandKinds; ++kind) {
    const LatencyHistogram& histogram = journal->latencies().at(kind);
    if (histogram.count() != 0) {
      object[commandKindName(static_cast<CommandKind>(kind))] = latencyJson(histogram);
    }
  }
  return object;
}

Json unansweredJson(const std::vector<UnansweredCommand>& commands) {
  Json list = Json::array();
  for (const UnansweredCommand& command : commands) {
    list.push_back({{"kind", commandKindName(command.kind)},
                    {"lba", command.lba},
                    {"blocks", command.blocks},
                    {"tag", command.tag},
                    {"ageUs", command.ageUs}});
  }
  return list;
}

Json driveJson(const DriveResult& drive, const DriveIntroduction& introduction) {
  Json object = Json::object();
  addIntroduction(object, introduction);
  object["verdict"] = verdictText(drive);
  object["status"] = runStatusName(drive.status);
  object["agentStatus"] = drive.agentStatus;
  object["error"] = drive.error;
  addFigures(object, drive.totals);
  object["checked"] = checkedJson(drive.totals.checked);
  object["elapsedMs"] = drive.elapsedMs;
  object["unanswered"] = unansweredJson(drive.unanswered);
  object["injections"] = injectionsJson(drive.injections);
  object["messages"] = messagesJson(drive.messages);
  object["latency"] = latenciesJson(drive.journal.get());
  object["files"] = {{"reports", drive.messages.reports}, {"dumps", drive.messages.dumps}};
  if (!drive.messages.incomplete.empty()) {
    object["files"]["incomplete"] = drive.messages.incomplete;
  }
  return object;
}

Json heading(const RunSettings& settings, RunStatus status, std::string_view error) {
  Json document = Json::object();
  document["format"] = runDocumentFormat;
  document["version"] = programVersion();
  document["seed"] = settings.test.seed;
  document["seedDrawn"] = settings.seedDrawn;
  document["repeat"] = repeatCommand(settings);
  document["test"] = testJson(settings);
  document["started"] = utcText(settings.startedUs);
  document["status"] = runStatusName(status);
  document["exitStatus"] = exitStatusOf(status);
  document["error"] = error;
  return document;
}

void finish(Json& document, bool stopped, uint64_t elapsedMs, const std::vector<std::string>& warnings) {
  document["stopped"] = stopped;
  document["elapsedMs"] = elapsedMs;
  document["warnings"] = warnings;
  document["drives"] = Json::array();
  document["findings"] = Json::array();
}

}  // namespace

std::string runJson(const RunSettings& settings, const std::vector<DriveIntroduction>& drives,
                    const std::vector<std::string>& warnings, const RunResult& result,
                    const std::vector<std::optional<Explanation>>& explanations) {
  Json document = heading(settings, result.status, "");
  finish(document, result.stopped, result.elapsedMs, warnings);
  for (size_t i = 0; i < result.drives.size(); ++i) {
    document["drives"].push_back(driveJson(result.drives[i], drives.at(i)));
  }
  for (const Finding& finding : result.findings) {
    Json object = Json::object();
    object["drive"] = finding.drive;
    object["driveIndex"] = finding.driveIndex;
    object["agentStatus"] = finding.agentStatus;
    object["lba"] = finding.lba ? Json(*finding.lba) : Json();
    object["commandNumber"] = finding.moment.commandNumber;
    object["step"] = finding.moment.step;
    object["elapsedMs"] = finding.moment.elapsedMs;
    object["text"] = finding.text;
    object["files"] = finding.files;
    if (finding.driveIndex < explanations.size() && explanations[finding.driveIndex]) {
      object["explanation"] = explanationJson(*explanations[finding.driveIndex], replayLine(settings));
    }
    document["findings"].push_back(std::move(object));
  }
  return documentText(document);
}

std::string unfinishedRunJson(const RunSettings& settings, const std::vector<std::string>& warnings) {
  Json document = heading(settings, RunStatus::internal, "the test has not ended; it goes on, or it was killed");
  document["status"] = "unfinished";
  document["exitStatus"] = nullptr;
  finish(document, false, 0, warnings);
  return documentText(document);
}

std::string failedRunJson(const RunSettings& settings, RunStatus status, std::string_view error) {
  Json document = heading(settings, status, error);
  finish(document, false, 0, {});
  return documentText(document);
}

}  // namespace corvane::host
