#include "host/report/PageData.h"

#include <nlohmann/json.hpp>

#include "host/base/TextFormat.h"

namespace corvane::host::report {
namespace {

using Json = nlohmann::ordered_json;

Json wide(const std::optional<uint64_t>& number) { return number ? Json(std::to_string(*number)) : Json(); }

Json maybe(const std::optional<uint64_t>& number) { return number ? Json(*number) : Json(); }

Json countsJson(const std::vector<NamedCount>& counts) {
  Json list = Json::array();
  for (const NamedCount& one : counts) {
    list.push_back({one.name, one.count});
  }
  return list;
}

Json latencyJson(const LatencyFigures& figures) {
  return {{"kind", figures.kind},   {"count", figures.count},    {"minUs", figures.minUs}, {"meanUs", figures.meanUs},
          {"p50Us", figures.p50Us}, {"p90Us", figures.p90Us},    {"p99Us", figures.p99Us}, {"p999Us", figures.p999Us},
          {"maxUs", figures.maxUs}, {"buckets", figures.buckets}};
}

Json injectionJson(const InjectedFault& fault) {
  return {{"class", fault.what},
          {"command", fault.command},
          {"kind", fault.kind},
          {"lba", wide(fault.lba)},
          {"blocks", fault.blocks},
          {"note", fault.note},
          {"altered", fault.alteredBlocks},
          {"delivered", fault.delivered},
          {"visible", fault.visible}};
}

Json checkedJson(const Coverage& checked) {
  return {{"oneOutcome", checked.oneOutcome},
          {"severalOutcomes", countsJson(checked.severalOutcomes)},
          {"notCheckable", countsJson(checked.notCheckable)}};
}

Json driveJson(const DriveOfResult& drive) {
  Json object = Json::object();
  object["name"] = drive.name;
  object["address"] = drive.address;
  object["description"] = drive.description;
  object["status"] = drive.status;
  object["verdict"] = drive.verdict;
  object["error"] = drive.error;
  object["blocks"] = wide(drive.blocks);
  object["blockSize"] = drive.blockSize;
  object["protectionBytes"] = drive.protectionBytes;
  object["physicalBlockSize"] = drive.physicalBlockSize;
  object["firstLba"] = wide(drive.firstLba);
  object["endLba"] = wide(drive.endLba);
  object["elapsedMs"] = drive.elapsedMs;
  object["issued"] = countsJson(drive.issued);
  object["completed"] = countsJson(drive.completed);
  object["commandCounts"] = countsJson(drive.commandCounts);
  object["events"] = countsJson(drive.events);
  object["blockCounts"] = countsJson(drive.blockCounts);
  object["byteCounts"] = countsJson(drive.byteCounts);
  Json& latency = object["latency"] = Json::array();
  for (const LatencyFigures& figures : drive.latency) {
    latency.push_back(latencyJson(figures));
  }
  object["checked"] = drive.checked ? checkedJson(*drive.checked) : Json();
  Json& injections = object["injections"] = Json::array();
  for (const InjectedFault& fault : drive.injections) {
    injections.push_back(injectionJson(fault));
  }
  object["messages"] = drive.messages;
  return object;
}

Json commandJson(const ShownCommand& shown) {
  const ReportedCommand& command = shown.command;
  Json object = Json::object();
  object["number"] = command.number == 0 ? Json() : Json(std::to_string(command.number));
  object["id"] = wide(command.id);
  object["kind"] = command.kind;
  object["tag"] = maybe(command.tag);
  object["lba"] = wide(command.lba);
  object["blocks"] = command.blocks;
  object["lbaStep"] = command.lbaStep;
  object["issued"] = command.issued;
  object["finished"] = maybe(command.finished);
  object["status"] = maybe(command.status);
  object["trouble"] = command.trouble;
  object["preRead"] = command.preRead;
  object["failingRead"] = shown.failingRead;
  object["expectedWrite"] = shown.expectedWrite;
  object["observedWrite"] = shown.observedWrite;
  return object;
}

Json stampJson(const Stamp& stamp) {
  return {{"bucket", maybe(stamp.bucket)},
          {"lba", wide(stamp.lba)},
          {"commandId", wide(stamp.commandId)},
          {"zeros", stamp.zeros}};
}

Json historyJson(const std::vector<HistoryRow>& rows) {
  Json list = Json::array();
  for (const HistoryRow& row : rows) {
    list.push_back(
        {{"cells", {row.event, row.commandId, row.blockType, row.bucket, row.embeddedId, row.embeddedLba, row.hash}},
         {"observed", row.observed}});
  }
  return list;
}

void addPicture(Json& object, const FindingView& view) {
  Json& commands = object["commands"] = Json::array();
  for (const ShownCommand& command : view.commands) {
    commands.push_back(commandJson(command));
  }
  Json& moments = object["moments"] = Json::array();
  for (const Moment& moment : view.moments) {
    moments.push_back({{"at", moment.at}, {"text", moment.text}});
  }
  object["timed"] = view.timed;
  object["readIsGuessed"] = view.readIsGuessed;
  object["driveData"] = hexDigits(view.driveData);
  object["referenceData"] = hexDigits(view.referenceData);
  Json& fields = object["fields"] = Json::array();
  for (const BlockField& field : view.fields) {
    fields.push_back({{"name", field.name}, {"offset", field.offset}, {"bytes", field.bytes}});
  }
  object["differing"] = view.differing;
  object["observed"] = stampJson(view.observed);
  object["expected"] = stampJson(view.expected);
  object["history"] = historyJson(view.history);
  object["notes"] = view.notes;
}

void addWords(Json& object, const Explanation& explanation) {
  object["kind"] = explanation.kind;
  object["suspects"] = explanation.suspects;
  object["sentences"] = explanation.sentences;
  object["reread"] = explanation.reread;
  object["replay"] = explanation.replay;
  object["firstDifference"] = maybe(explanation.firstDifference);
  object["differingBytes"] = maybe(explanation.differingBytes);
  Json& legal = object["legal"] = Json::array();
  for (const LegalOutcome& outcome : explanation.legal) {
    legal.push_back(
        {{"text", outcome.text}, {"commandId", wide(outcome.commandId)}, {"bucket", maybe(outcome.bucket)}});
  }
  Json& neighbours = object["neighbours"] = Json::array();
  for (const Neighbour& one : explanation.neighbours) {
    neighbours.push_back({{"lba", wide(one.lba)}, {"state", one.state}, {"commandId", wide(one.commandId)}});
  }
}

Json findingJson(const FindingView& view) {
  const FindingOfResult& finding = view.finding;
  Json object = Json::object();
  object["drive"] = finding.drive;
  object["text"] = finding.text;
  object["agentStatus"] = finding.agentStatus;
  object["lba"] = wide(view.lba);
  object["commandNumber"] = wide(finding.commandNumber);
  object["step"] = wide(finding.step);
  object["elapsedMs"] = maybe(finding.elapsedMs);
  object["files"] = finding.files;
  object["explained"] = finding.explanation.has_value();
  addWords(object, finding.explanation.value_or(Explanation{}));
  addPicture(object, view);
  return object;
}

/// The text with everything escaped that HTML could take for its own.
std::string withoutMarkup(const std::string& json) {
  std::string safe;
  safe.reserve(json.size());
  for (const char c : json) {
    if (c == '<') {
      safe += "\\u003c";
    } else if (c == '>') {
      safe += "\\u003e";
    } else if (c == '&') {
      safe += "\\u0026";
    } else {
      safe += c;
    }
  }
  return safe;
}

}  // namespace

std::string pageData(const RunReport& report) {
  const ResultDocument& result = report.result;
  Json document = Json::object();
  document["file"] = report.resultFile;
  document["version"] = result.version;
  document["status"] = result.status;
  document["error"] = result.error;
  document["exitStatus"] = result.exitStatus;
  document["started"] = result.started;
  document["seed"] = wide(result.seed);
  document["stopped"] = result.stopped;
  document["elapsedMs"] = result.elapsedMs;
  document["repeat"] = shellLine(result.repeat);
  document["warnings"] = result.warnings;
  Json& test = document["test"] = Json::array();
  for (const auto& [key, value] : result.test) {
    test.push_back({key, value});
  }
  Json& drives = document["drives"] = Json::array();
  for (const DriveOfResult& drive : result.drives) {
    drives.push_back(driveJson(drive));
  }
  Json& findings = document["findings"] = Json::array();
  for (const FindingView& view : report.findings) {
    findings.push_back(findingJson(view));
  }
  return withoutMarkup(document.dump(-1, ' ', true, Json::error_handler_t::replace));
}

}  // namespace corvane::host::report
