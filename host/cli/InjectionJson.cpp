#include "host/cli/InjectionJson.h"

#include <algorithm>
#include <span>
#include <string>

#include "host/cli/ExplanationJson.h"

namespace corvane::host {
namespace {

using Json = nlohmann::ordered_json;

constexpr size_t shownBytes = 32;  ///< of a block: those that say what it is

std::string hex(const std::vector<uint8_t>& bytes) {
  return hexText(std::span(bytes).first(std::min(bytes.size(), shownBytes)));
}

Json alteredJson(const AlteredBlock& block) {
  Json object = Json::object();
  object["lba"] = block.lba;
  object["was"] = hex(block.was);
  object["is"] = block.is.empty() ? Json() : Json(hex(block.is));
  if (!block.is.empty()) {
    const Difference difference = differenceOf(block);
    object["firstDifference"] = difference.first;
    object["differingBytes"] = difference.bytes;
  }
  return object;
}

}  // namespace

Json injectionsJson(const std::vector<Injection>& injections) {
  Json list = Json::array();
  for (const Injection& injection : injections) {
    Json object = Json::object();
    object["class"] = faultClassInfo(injection.what).name;
    object["command"] = injection.command;
    object["kind"] = commandKindName(injection.kind);
    object["lba"] = injection.lba;
    object["blocks"] = injection.blocks;
    object["note"] = injection.note;
    object["delivered"] = injection.delivered;
    object["visible"] = injection.visible;
    object["firstDelivery"] = injection.firstDelivery;
    object["overwritten"] = injection.overwritten;
    object["interrupted"] = injection.interrupted;
    Json& altered = object["altered"] = Json::array();
    for (const AlteredBlock& block : injection.altered) {
      altered.push_back(alteredJson(block));
    }
    list.push_back(std::move(object));
  }
  return list;
}

}  // namespace corvane::host
