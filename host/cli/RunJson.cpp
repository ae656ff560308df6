#include "host/cli/RunJson.h"

#include <nlohmann/json.hpp>

#include "host/cli/ExitStatus.h"
#include "host/cli/InjectionJson.h"
#include "host/cli/RunSummary.h"
#include "host/cli/Version.h"

namespace corvane::host {
namespace {

using Json = nlohmann::ordered_json;

std::string documentText(const Json& document) {
  constexpr int indent = 2;
  return document.dump(indent, ' ', false, Json::error_handler_t::replace) + "\n";
}

Json byKind(const std::array<uint64_t, commandKinds>& counts) {
  Json object = Json::object();
  for (uint32_t kind = 0; kind < commandKinds; ++kind) {
    object[commandKindName(static_cast<CommandKind>(kind))] = counts[kind];
  }
  return object;
}

void addFigures(Json& object, const DriveTotals& totals) {
  Json& commands = object["commands"];
  commands["issued"] = byKind(totals.issued);
  commands["completed"] = byKind(totals.completed);
  commands["failed"] = totals.failed;
  commands["retried"] = totals.retried;
  commands["heldBack"] = totals.heldBack;
  commands["stray"] = totals.stray;
  commands["maxOutstanding"] = totals.maxOutstanding;
  object["events"] = {{"resets", totals.resets},
                      {"powerCycles", totals.powerCycles},
                      {"zoneResets", totals.zoneResets},
                      {"invalidations", totals.invalidations}};
  object["blocks"] = {{"written", totals.blocksWritten},
                      {"trimmed", totals.blocksTrimmed},
                      {"read", totals.blocksRead},
                      {"compared", totals.blocksCompared}};
  object["bytes"] = {{"written", totals.bytesWritten}, {"read", totals.bytesRead}, {"compared", totals.bytesCompared}};
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
  Json object;
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
  Json object;
  object["warnings"] = messages.warnings;
  object["errors"] = messages.errors;
  object["lines"] = std::move(lines);
  return object;
}

Json driveJson(const DriveResult& drive, const DriveIntroduction& introduction) {
  const DriveGeometry& shape = introduction.geometry;
  Json object;
  object["name"] = drive.name;
  object["address"] = drive.address;
  object["description"] = drive.description;
  object["geometry"] = {{"blocks", shape.blocks},
                        {"blockSize", shape.blockSize},
                        {"protectionBytes", shape.protectionBytes},
                        {"physicalBlockSize", uint64_t{shape.blockSize} << shape.physicalExponent}};
  object["range"] = {{"firstLba", introduction.firstLba}, {"endLba", introduction.endLba}};
  object["verdict"] = verdictText(drive);
  object["status"] = runStatusName(drive.status);
  object["agentStatus"] = drive.agentStatus;
  object["error"] = drive.error;
  addFigures(object, drive.totals);
  object["checked"] = checkedJson(drive.totals.checked);
  object["elapsedMs"] = drive.elapsedMs;
  object["injections"] = injectionsJson(drive.injections);
  object["messages"] = messagesJson(drive.messages);
  object["files"] = {{"reports", drive.messages.reports}, {"dumps", drive.messages.dumps}};
  return object;
}

Json heading(const RunSettings& settings, RunStatus status, std::string_view error) {
  Json document;
  document["version"] = programVersion();
  document["seed"] = settings.test.seed;
  document["seedDrawn"] = settings.seedDrawn;
  document["repeat"] = repeatCommand(settings);
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
                    const std::vector<std::string>& warnings, const RunResult& result) {
  Json document = heading(settings, result.status, "");
  finish(document, result.stopped, result.elapsedMs, warnings);
  for (size_t i = 0; i < result.drives.size(); ++i) {
    document["drives"].push_back(driveJson(result.drives[i], drives.at(i)));
  }
  for (const Finding& finding : result.findings) {
    Json object;
    object["drive"] = finding.drive;
    object["agentStatus"] = finding.agentStatus;
    object["lba"] = finding.lba ? Json(*finding.lba) : Json();
    object["text"] = finding.text;
    object["files"] = finding.files;
    document["findings"].push_back(std::move(object));
  }
  return documentText(document);
}

std::string failedRunJson(const RunSettings& settings, RunStatus status, std::string_view error) {
  Json document = heading(settings, status, error);
  finish(document, false, 0, {});
  return documentText(document);
}

}  // namespace corvane::host
