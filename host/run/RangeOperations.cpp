#include "host/run/RangeOperations.h"

#include <array>
#include <cstdio>
#include <string>

#include "host/drive/DriveError.h"
#include "host/run/CheckAccount.h"
#include "host/run/CommandJournal.h"
#include "host/run/ZoneWriter.h"
#include "vdl/SenseParser.h"

namespace corvane::host {
namespace {

constexpr const char* resetVariable = "CSZoneReset";
constexpr const char* invalidVariable = "CVNInvalidateRanges";
constexpr uint32_t shortestSense = 8;

std::string hex(uint32_t number) {
  std::array<char, 16> text{};
  std::snprintf(text.data(), text.size(), "0x%02X", number);
  return text.data();
}

std::string answerText(const DriveCompletion& completion) {
  std::string text = "status " + hex(completion.status);
  const uint8_t* sense = completion.sense.data();
  vdl::SenseParser::Kcq kcq;
  if (completion.senseBytes >= shortestSense && vdl::SenseParser::getKey(sense, kcq) == 0 &&
      vdl::SenseParser::getCode(sense, kcq) == 0 && vdl::SenseParser::getQual(sense, kcq) == 0) {
    text += ", sense key " + hex(kcq.key) + ", code " + hex(kcq.code) + ", qualifier " + hex(kcq.qual);
  }
  return text;
}

[[noreturn]] void fail(CommandKind kind, const vdl::LBARange& range, const DriveCompletion& completion) {
  const std::string where = "of LBA " + std::to_string(range.first) + " to " + std::to_string(range.end - 1);
  const bool reset = kind == CommandKind::zoneReset;
  throw DriveError("the drive failed " + std::string(reset ? "a zone reset " : "an invalidation ") + where + " (" +
                   answerText(completion) + "); check the drive, or run without " +
                   (reset ? "zone resets" : "invalidations"));
}

}  // namespace

void RangeOperations::Schedule::done(uint64_t commandsIssued) {
  next = commandsIssued + every;
  postponed = 0;
}

RangeOperations::RangeOperations(const RangeSettings& settings, const TagPool& tags, DriveQueue& queue,
                                 SharedVariables& variables, DriveCounters& counters, CheckAccount& checks,
                                 ZoneWriter* writer)
    : tags_(tags),
      queue_(queue),
      counters_(counters),
      checks_(checks),
      writer_(writer),
      journal_(settings.journal),
      zones_(settings.zones),
      zoneResets_{.every = settings.zoneResetEveryCommands, .next = settings.zoneResetEveryCommands},
      invalidations_{.every = settings.invalidateEveryCommands, .next = settings.invalidateEveryCommands} {
  if (zoneResets_.every != 0) {
    zoneSource_.emplace(zones_, writer, settings.zoneResetSeed);
    resetRanges_ = &variables.ranges(resetVariable);
    variables.setWriters(resetVariable, 1);
  }
  if (invalidations_.every != 0) {
    invalidateSource_.emplace(settings.firstLba, settings.endLba, settings.maxBlocks, settings.invalidateSeed);
    invalidRanges_ = &variables.ranges(invalidVariable);
    variables.setWriters(invalidVariable, 1);
  }
}

void RangeOperations::emptyAllZones() {
  for (; zonesEmptied_ < zones_.count(); ++zonesEmptied_) {
    resetZone(zonesEmptied_);
  }
}

bool RangeOperations::carryOutDue(uint64_t commandsIssued, uint32_t publishedTag, const RangeGates& gates) {
  finishInterrupted(commandsIssued);
  bool goOn = true;
  if ((gates.zoneReset && zoneResets_.due(commandsIssued)) || mustMakeRoom()) {
    goOn = carryOutZoneReset(commandsIssued, publishedTag);
  }
  if (gates.invalidate && invalidations_.due(commandsIssued)) {
    goOn = carryOutInvalidate(commandsIssued, publishedTag) && goOn;
  }
  return goOn;
}

void RangeOperations::finishInterrupted(uint64_t commandsIssued) {
  // Nothing is outstanding after a reset of the drive, so nothing can stand in the way.
  if (zoneBegun_) {
    resetAndTell(*zoneBegun_, commandsIssued);
  }
  if (rangeBegun_) {
    invalidateAndTell(*rangeBegun_, commandsIssued);
  }
}

bool RangeOperations::mustMakeRoom() const { return writer_ != nullptr && !writer_->hasRoom(); }

bool RangeOperations::carryOutZoneReset(uint64_t commandsIssued, uint32_t publishedTag) {
  for (uint32_t attempt = 0; attempt < tries; ++attempt) {
    const uint32_t zone = zoneSource_->pick();
    // The agent gives up the block behind the zone, too, so that one must be as quiet as the others.
    if (isBusy({.first = zones_.first(zone), .end = zones_.end(zone) + 1}, publishedTag)) {
      continue;
    }
    resetAndTell(zone, commandsIssued);
    return true;
  }
  return !mustMakeRoom() && zoneResets_.postpone();
}

bool RangeOperations::carryOutInvalidate(uint64_t commandsIssued, uint32_t publishedTag) {
  for (uint32_t attempt = 0; attempt < tries; ++attempt) {
    const vdl::LBARange range = invalidateSource_->pick();
    if (isBusy(range, publishedTag)) {
      continue;
    }
    invalidateAndTell(range, commandsIssued);
    return true;
  }
  return invalidations_.postpone();
}

void RangeOperations::resetAndTell(uint32_t zone, uint64_t commandsIssued) {
  zoneBegun_ = zone;
  resetZone(zone);
  zoneBegun_.reset();
  resetRanges_->push({.first = zones_.first(zone), .end = zones_.end(zone)});
  checks_.zonesReset(zones_.first(zone), zones_.end(zone));
  counters_.zoneResets.add(1);
  zoneResets_.done(commandsIssued);
}

void RangeOperations::invalidateAndTell(vdl::LBARange range, uint64_t commandsIssued) {
  rangeBegun_ = range;
  run(CommandKind::invalidate, range);
  rangeBegun_.reset();
  // The agent takes this queue's end as included, unlike the other's. One block too many would be one whose content
  // is as it was, and so a false alarm.
  invalidRanges_->push({.first = range.first, .end = range.end - 1});
  checks_.invalidated(range.first, range.end);
  counters_.invalidations.add(1);
  invalidations_.done(commandsIssued);
}

bool RangeOperations::isBusy(const vdl::LBARange& range, uint32_t publishedTag) const {
  // A tag is outstanding until its completion is published, and the agent learns of that one only in its next call.
  for (uint32_t tag = 0; tag < tags_.size(); ++tag) {
    if (!tags_.isOutstanding(tag) && tag != publishedTag) {
      continue;
    }
    const DriveCommand& command = queue_.command(tag);
    if (command.kind == CommandKind::syncCache || (command.lba < range.end && range.first < command.endLba())) {
      return true;
    }
  }
  return false;
}

void RangeOperations::resetZone(uint32_t zone) {
  run(CommandKind::zoneReset, {.first = zones_.first(zone), .end = zones_.end(zone)});
  if (writer_ != nullptr) {
    writer_->emptied(zone);
  }
}

void RangeOperations::run(CommandKind kind, const vdl::LBARange& range) {
  DriveCommand command;
  command.kind = kind;
  command.lba = range.first;
  command.blocks = static_cast<uint32_t>(range.end - range.first);
  const DriveCompletion completion = queue_.runAlone(command);
  if (completion.status != scsi_status::good) {
    fail(kind, range, completion);
  }
  if (journal_ != nullptr) {
    const bool reset = kind == CommandKind::zoneReset;
    journal_->happened(reset ? Incident::What::zoneReset : Incident::What::invalidation, range.first, range.end);
  }
}

}  // namespace corvane::host
