#include "host/report/ExplanationReader.h"

namespace corvane::host::report {
namespace {

ReportedCommand readCommand(const JsonNode& node) {
  ReportedCommand command;
  command.number = node.at("number").number();
  command.id = node.maybeNumber("id");
  command.kind = node.at("kind").text();
  command.tag = node.maybeNumber("tag");
  command.lba = node.at("lba").number();
  command.blocks = node.at("blocks").number();
  if (const auto step = node.find("lbaStep")) {
    command.lbaStep = step->number();
    if (command.lbaStep == 0) {
      step->wrong("a whole number from 1 on");
    }
  }
  command.issued = node.at("issuedUs").number();
  command.finished = node.maybeNumber("finishedUs");
  command.status = node.maybeNumber("status");
  command.preRead = node.truthOf("preRead");
  return command;
}

std::optional<ReportedCommand> maybeCommand(const JsonNode& node, const std::string& key) {
  const auto member = node.find(key);
  return member ? std::optional(readCommand(*member)) : std::nullopt;
}

std::optional<Stamp> maybeStamp(const JsonNode& node, const std::string& key) {
  const auto member = node.find(key);
  if (!member) {
    return std::nullopt;
  }
  Stamp stamp;
  stamp.bucket = member->maybeNumber("bucket");
  stamp.lba = member->maybeNumber("lba");
  stamp.commandId = member->maybeNumber("commandId");
  stamp.zeros = member->truthOf("zeros");
  return stamp;
}

std::vector<uint8_t> bytesOf(const JsonNode& node, const std::string& key) {
  const auto member = node.find(key);
  return member ? member->bytes() : std::vector<uint8_t>{};
}

}  // namespace

Explanation readExplanation(const JsonNode& node) {
  Explanation explanation;
  explanation.kind = node.textOf("kind");
  explanation.suspects = node.textsOf("suspects");
  explanation.sentences = node.textsOf("sentences");
  explanation.lba = node.maybeNumber("lba");
  explanation.blockSize = node.maybeNumber("blockSize");
  explanation.read = maybeCommand(node, "read");
  explanation.expected = maybeStamp(node, "expected");
  explanation.observed = maybeStamp(node, "observed");
  explanation.expectedWrite = maybeCommand(node, "expectedWrite");
  explanation.observedWrite = maybeCommand(node, "observedWrite");
  for (const JsonNode& item : node.itemsOf("legal")) {
    explanation.legal.push_back({.text = item.at("text").text(),
                                 .commandId = item.maybeNumber("commandId"),
                                 .bucket = item.maybeNumber("bucket")});
  }
  explanation.firstDifference = node.maybeNumber("firstDifference");
  explanation.differingBytes = node.maybeNumber("differingBytes");
  explanation.driveData = bytesOf(node, "driveData");
  explanation.referenceData = bytesOf(node, "referenceData");
  explanation.reread = node.textOf("reread");
  for (const JsonNode& item : node.itemsOf("neighbours")) {
    explanation.neighbours.push_back(
        {.lba = item.at("lba").number(), .state = item.at("state").text(), .commandId = item.maybeNumber("commandId")});
  }
  for (const JsonNode& item : node.itemsOf("commands")) {
    explanation.commands.push_back(readCommand(item));
  }
  explanation.history = node.textOf("history");
  explanation.replay = node.textOf("replay");
  return explanation;
}

}  // namespace corvane::host::report
