#include "host/cli/ExplanationJson.h"

#include <string_view>

namespace corvane::host {
namespace {

using Json = nlohmann::ordered_json;

template <typename Value>
Json orNull(const std::optional<Value>& value) {
  return value ? Json(*value) : Json();
}

Json commandJson(const JournalEntry& command) {
  const bool finished = command.end == JournalEntry::End::finished;
  Json object = Json::object();
  object["number"] = command.number;
  object["id"] = command.commandId == 0 ? Json() : Json(command.commandId);
  object["kind"] = commandKindName(command.kind);
  object["tag"] = command.tag;
  object["lba"] = command.lba;
  object["blocks"] = command.blocks;
  object["lbaStep"] = command.lbaStep;
  object["issuedUs"] = command.issuedUs;
  object["finishedUs"] = finished ? Json(command.finishedUs) : Json();
  object["status"] = finished ? Json(command.status) : Json();
  object["preRead"] = command.preRead;
  return object;
}

Json commandJson(const std::optional<JournalEntry>& command) { return command ? commandJson(*command) : Json(); }

Json stampJson(const std::optional<BlockStamp>& stamp) {
  if (!stamp) {
    return {};
  }
  return {{"bucket", stamp->bucket}, {"lba", stamp->lba}, {"commandId", stamp->commandId}, {"zeros", stamp->zeros}};
}

}  // namespace

std::string hexText(std::span<const uint8_t> bytes) {
  constexpr std::string_view digits = "0123456789abcdef";
  std::string text;
  text.reserve(bytes.size() * 2);
  for (const uint8_t byte : bytes) {
    text += digits[byte >> 4];
    text += digits[byte & 0xF];
  }
  return text;
}

Json explanationJson(const Explanation& e, const std::string& replay) {
  Json object = Json::object();
  object["kind"] = findingKindName(e.kind);
  object["suspects"] = Json::array();
  for (const FaultClass suspect : e.suspects) {
    object["suspects"].push_back(faultClassInfo(suspect).name);
  }
  object["sentences"] = e.sentences;
  object["lba"] = e.lba;
  object["blockSize"] = e.sectorBytes;
  object["read"] = commandJson(e.read);
  object["expected"] = stampJson(e.expected);
  object["observed"] = stampJson(e.observed);
  object["expectedWrite"] = commandJson(e.expectedWrite);
  object["observedWrite"] = commandJson(e.observedWrite);
  object["legal"] = Json::array();
  for (const LegalOutcome& outcome : e.legal) {
    object["legal"].push_back(
        {{"text", outcome.text}, {"commandId", orNull(outcome.commandId)}, {"bucket", orNull(outcome.bucket)}});
  }
  object["firstDifference"] = e.difference ? Json(e.difference->first) : Json();
  object["differingBytes"] = e.difference ? Json(e.difference->bytes) : Json();
  object["driveData"] = hexText(e.driveBlock);
  object["referenceData"] = hexText(e.referenceBlock);
  object["reread"] = e.reread ? Json(rereadName(*e.reread)) : Json();
  object["neighbours"] = Json::array();
  for (const NeighbourBlock& block : e.neighbours) {
    object["neighbours"].push_back(
        {{"lba", block.lba}, {"state", neighbourStateName(block.state)}, {"commandId", orNull(block.commandId)}});
  }
  object["commands"] = Json::array();
  for (const JournalEntry& command : e.commands) {
    object["commands"].push_back(commandJson(command));
  }
  object["history"] = e.history;
  object["replay"] = replay;
  return object;
}

}  // namespace corvane::host
