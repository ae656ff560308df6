#include "host/report/ResultDocument.h"

#include "host/base/JsonNesting.h"
#include "host/report/ExplanationReader.h"
#include "host/report/JsonNode.h"
#include "host/report/ReportError.h"

namespace corvane::host::report {
namespace {

constexpr uint64_t knownFormat = 1;

std::vector<NamedCount> countsOf(const JsonNode& node, const std::string& key) {
  std::vector<NamedCount> counts;
  if (const auto member = node.find(key)) {
    for (const auto& [name, value] : member->members()) {
      counts.push_back({name, value.number()});
    }
  }
  return counts;
}

/// Of a drive's `commands`: what is not by kind.
std::vector<NamedCount> plainCountsOf(const JsonNode& commands) {
  std::vector<NamedCount> counts;
  for (const auto& [name, value] : commands.members()) {
    if (name != "issued" && name != "completed") {
      counts.push_back({name, value.number()});
    }
  }
  return counts;
}

LatencyFigures readLatency(const std::string& kind, const JsonNode& node) {
  LatencyFigures figures;
  figures.kind = kind;
  figures.count = node.at("count").number();
  figures.minUs = node.numberOf("minUs");
  const auto mean = node.find("meanUs");
  figures.meanUs = mean ? mean->real() : 0;
  figures.p50Us = node.numberOf("p50Us");
  figures.p90Us = node.numberOf("p90Us");
  figures.p99Us = node.numberOf("p99Us");
  figures.p999Us = node.numberOf("p999Us");
  figures.maxUs = node.numberOf("maxUs");
  for (const JsonNode& bucket : node.itemsOf("buckets")) {
    const std::vector<JsonNode> pair = bucket.items();
    if (pair.size() != 2) {
      bucket.wrong("an upper bound and a count");
    }
    figures.buckets.emplace_back(pair[0].number(), pair[1].number());
  }
  return figures;
}

InjectedFault readInjection(const JsonNode& node) {
  InjectedFault fault;
  fault.what = node.at("class").text();
  fault.command = node.numberOf("command");
  fault.kind = node.textOf("kind");
  fault.lba = node.numberOf("lba");
  fault.blocks = node.numberOf("blocks");
  fault.note = node.textOf("note");
  fault.alteredBlocks = node.itemsOf("altered").size();
  fault.delivered = node.numberOf("delivered");
  fault.visible = node.numberOf("visible");
  return fault;
}

Coverage readCoverage(const JsonNode& node) {
  return {.oneOutcome = node.numberOf("oneOutcome"),
          .severalOutcomes = countsOf(node, "severalOutcomes"),
          .notCheckable = countsOf(node, "notCheckable")};
}

void readShape(DriveOfResult& drive, const JsonNode& node) {
  if (const auto geometry = node.find("geometry")) {
    drive.blocks = geometry->numberOf("blocks");
    drive.blockSize = geometry->numberOf("blockSize");
    drive.protectionBytes = geometry->numberOf("protectionBytes");
    drive.physicalBlockSize = geometry->numberOf("physicalBlockSize");
  }
  if (const auto range = node.find("range")) {
    drive.firstLba = range->numberOf("firstLba");
    drive.endLba = range->numberOf("endLba");
  }
}

DriveOfResult readDrive(const JsonNode& node) {
  DriveOfResult drive;
  drive.name = node.at("name").text();
  drive.address = node.textOf("address");
  drive.description = node.textOf("description");
  drive.status = node.at("status").text();
  drive.verdict = node.textOf("verdict");
  drive.error = node.textOf("error");
  readShape(drive, node);
  drive.elapsedMs = node.numberOf("elapsedMs");
  if (const auto commands = node.find("commands")) {
    drive.issued = countsOf(*commands, "issued");
    drive.completed = countsOf(*commands, "completed");
    drive.commandCounts = plainCountsOf(*commands);
  }
  drive.events = countsOf(node, "events");
  drive.blockCounts = countsOf(node, "blocks");
  drive.byteCounts = countsOf(node, "bytes");
  if (const auto latency = node.find("latency")) {
    for (const auto& [kind, figures] : latency->members()) {
      drive.latency.push_back(readLatency(kind, figures));
    }
  }
  if (const auto checked = node.find("checked")) {
    drive.checked = readCoverage(*checked);
  }
  for (const JsonNode& injection : node.itemsOf("injections")) {
    drive.injections.push_back(readInjection(injection));
  }
  if (const auto messages = node.find("messages")) {
    for (const JsonNode& line : messages->itemsOf("lines")) {
      drive.messages.push_back(line.at("text").text());
    }
  }
  return drive;
}

FindingOfResult readFinding(const JsonNode& node) {
  FindingOfResult finding;
  finding.drive = node.at("drive").text();
  finding.text = node.at("text").text();
  if (const auto status = node.find("agentStatus")) {
    finding.agentStatus = status->signedNumber();
  }
  finding.driveIndex = node.maybeNumber("driveIndex");
  finding.lba = node.maybeNumber("lba");
  finding.commandNumber = node.maybeNumber("commandNumber");
  finding.step = node.maybeNumber("step");
  finding.elapsedMs = node.maybeNumber("elapsedMs");
  finding.files = node.textsOf("files");
  if (const auto explanation = node.find("explanation")) {
    finding.explanation = readExplanation(*explanation);
  }
  return finding;
}

void checkFormat(const JsonNode& node) {
  if (const auto format = node.find("format"); format && format->number() != knownFormat) {
    format->wrong("1, the one format that this program knows,");
  }
}

ResultDocument readDocument(const JsonNode& node) {
  checkFormat(node);
  ResultDocument result;
  result.version = node.at("version").text();
  result.status = node.at("status").text();
  result.error = node.textOf("error");
  result.started = node.textOf("started");
  result.seed = node.numberOf("seed");
  result.elapsedMs = node.numberOf("elapsedMs");
  if (const auto status = node.find("exitStatus")) {
    result.exitStatus = status->signedNumber();
  }
  result.stopped = node.truthOf("stopped");
  result.repeat = node.textsOf("repeat");
  result.warnings = node.textsOf("warnings");
  if (const auto test = node.find("test")) {
    for (const auto& [key, value] : test->members()) {
      result.test.emplace_back(key, value.anyText());
    }
  }
  for (const JsonNode& drive : node.at("drives").items()) {
    result.drives.push_back(readDrive(drive));
  }
  for (const JsonNode& finding : node.at("findings").items()) {
    result.findings.push_back(readFinding(finding));
  }
  return result;
}

}  // namespace

ResultDocument parseResult(std::string_view json, const std::string& file) {
  if (nestsTooDeep(json)) {
    throw ReportError("'" + file + "' nests values more than " + std::to_string(mostJsonNesting) +
                      " deep, as no run does; give the result.json of a run");
  }
  JsonNode::Json document;
  try {
    document = JsonNode::Json::parse(json);
  } catch (const JsonNode::Json::parse_error& error) {
    throw ReportError("'" + file + "' is not JSON from byte " + std::to_string(error.byte) +
                      " on; give the result.json of a run");
  } catch (const JsonNode::Json::out_of_range&) {
    throw ReportError("'" + file + "' holds a number that no program can read; give the result.json of a run");
  }
  return readDocument(JsonNode(document, file));
}

bool looksLikeResult(std::string_view json) {
  if (nestsTooDeep(json)) {
    return false;
  }
  const JsonNode::Json document = JsonNode::Json::parse(json, nullptr, false);
  return document.is_object() && document.contains("drives") &&
         (document.contains("format") || document.contains("version"));
}

}  // namespace corvane::host::report
