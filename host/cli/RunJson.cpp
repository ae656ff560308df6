#include "host/cli/RunJson.h"

#include <nlohmann/json.hpp>

#include "host/cli/ExitStatus.h"
#include "host/cli/FiguresJson.h"
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
  Json object;
  addIntroduction(object, introduction);
  object["verdict"] = verdictText(drive);
  object["status"] = runStatusName(drive.status);
  object["agentStatus"] = drive.agentStatus;
  object["error"] = drive.error;
  addFigures(object, drive.totals);
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
