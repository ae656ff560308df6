#include "host/cli/FiguresJson.h"

#include <array>
#include <bit>

namespace corvane::host {
namespace {

using Json = nlohmann::ordered_json;

Json byKind(const std::array<uint64_t, commandKinds>& counts) {
  Json object = Json::object();
  for (uint32_t kind = 0; kind < commandKinds; ++kind) {
    object[commandKindName(static_cast<CommandKind>(kind))] = counts[kind];
  }
  return object;
}

std::array<uint64_t, commandKinds> countsByKind(JsonFields& fields, const char* key) {
  std::array<uint64_t, commandKinds> counts{};
  JsonFields kinds(fields.part(key));
  for (uint32_t kind = 0; kind < commandKinds; ++kind) {
    counts[kind] = kinds.number(commandKindName(static_cast<CommandKind>(kind)));
  }
  fields.takeFault(key, kinds);
  return counts;
}

void readCommands(JsonFields& fields, DriveTotals& totals) {
  JsonFields commands(fields.part("commands"));
  totals.issued = countsByKind(commands, "issued");
  totals.completed = countsByKind(commands, "completed");
  totals.failed = commands.number("failed");
  totals.retried = commands.number("retried");
  totals.heldBack = commands.number("heldBack");
  totals.stray = commands.number("stray");
  totals.maxOutstanding = commands.number32("maxOutstanding");
  fields.takeFault("commands", commands);
}

void readEvents(JsonFields& fields, DriveTotals& totals) {
  JsonFields events(fields.part("events"));
  totals.resets = events.number("resets");
  totals.powerCycles = events.number("powerCycles");
  totals.connectionsLost = events.number("connectionsLost");
  totals.zoneResets = events.number("zoneResets");
  totals.invalidations = events.number("invalidations");
  fields.takeFault("events", events);
}

void readAmounts(JsonFields& fields, DriveTotals& totals) {
  JsonFields blocks(fields.part("blocks"));
  totals.blocksWritten = blocks.number("written");
  totals.blocksTrimmed = blocks.number("trimmed");
  totals.blocksRead = blocks.number("read");
  totals.blocksCompared = blocks.number("compared");
  fields.takeFault("blocks", blocks);
  JsonFields bytes(fields.part("bytes"));
  totals.bytesWritten = bytes.number("written");
  totals.bytesRead = bytes.number("read");
  totals.bytesCompared = bytes.number("compared");
  fields.takeFault("bytes", bytes);
}

DriveGeometry geometryFrom(JsonFields& fields) {
  DriveGeometry shape;
  JsonFields geometry(fields.part("geometry"));
  shape.blocks = geometry.number("blocks");
  shape.blockSize = geometry.number32("blockSize");
  shape.protectionBytes = geometry.number32("protectionBytes");
  const uint64_t physical = geometry.number("physicalBlockSize");
  const uint64_t ratio = shape.blockSize == 0 ? 0 : physical / shape.blockSize;
  if (!std::has_single_bit(ratio) || physical % shape.blockSize != 0) {
    geometry.fail("physicalBlockSize");
  } else {
    shape.physicalExponent = static_cast<decltype(shape.physicalExponent)>(std::countr_zero(ratio));
  }
  fields.takeFault("geometry", geometry);
  return shape;
}

}  // namespace

void addFigures(Json& object, const DriveTotals& totals) {
  Json& commands = object["commands"] = Json::object();
  commands["issued"] = byKind(totals.issued);
  commands["completed"] = byKind(totals.completed);
  commands["failed"] = totals.failed;
  commands["retried"] = totals.retried;
  commands["heldBack"] = totals.heldBack;
  commands["stray"] = totals.stray;
  commands["maxOutstanding"] = totals.maxOutstanding;
  object["events"] = {{"resets", totals.resets},
                      {"powerCycles", totals.powerCycles},
                      {"connectionsLost", totals.connectionsLost},
                      {"zoneResets", totals.zoneResets},
                      {"invalidations", totals.invalidations}};
  object["blocks"] = {{"written", totals.blocksWritten},
                      {"trimmed", totals.blocksTrimmed},
                      {"read", totals.blocksRead},
                      {"compared", totals.blocksCompared}};
  object["bytes"] = {{"written", totals.bytesWritten}, {"read", totals.bytesRead}, {"compared", totals.bytesCompared}};
}

DriveTotals figuresFrom(JsonFields& fields) {
  DriveTotals totals;
  readCommands(fields, totals);
  readEvents(fields, totals);
  readAmounts(fields, totals);
  return totals;
}

void addIntroduction(Json& object, const DriveIntroduction& drive) {
  const DriveGeometry& shape = drive.geometry;
  object["name"] = drive.name;
  object["address"] = drive.address;
  object["description"] = drive.description;
  object["geometry"] = {{"blocks", shape.blocks},
                        {"blockSize", shape.blockSize},
                        {"protectionBytes", shape.protectionBytes},
                        {"physicalBlockSize", uint64_t{shape.blockSize} << shape.physicalExponent}};
  object["range"] = {{"firstLba", drive.firstLba}, {"endLba", drive.endLba}};
}

DriveIntroduction introductionFrom(JsonFields& fields) {
  DriveIntroduction drive;
  drive.name = fields.text("name");
  drive.address = fields.text("address");
  drive.description = fields.text("description");
  drive.geometry = geometryFrom(fields);
  JsonFields range(fields.part("range"));
  drive.firstLba = range.number("firstLba");
  drive.endLba = range.number("endLba");
  fields.takeFault("range", range);
  return drive;
}

std::optional<RunStatus> runStatusNamed(std::string_view name) {
  for (const RunStatus status :
       {RunStatus::clean, RunStatus::dataFailure, RunStatus::configuration, RunStatus::drive, RunStatus::internal}) {
    if (name == runStatusName(status)) {
      return status;
    }
  }
  return std::nullopt;
}

}  // namespace corvane::host
