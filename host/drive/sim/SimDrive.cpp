#include "host/drive/sim/SimDrive.h"

#include <algorithm>

#include "host/drive/CommandCheck.h"
#include "host/drive/GeometryKeys.h"
#include "host/drive/SenseData.h"

namespace corvane::host {
namespace {

constexpr uint64_t accidentsStream = 0x5EED;  ///< keeps the two random sequences of a seed apart

std::string describeZones(const SimSettings& settings) {
  if (settings.geometry.zoneBlocks == 0) {
    return "";
  }
  return std::string(settings.hostManaged ? ", host-managed" : ", host-aware") + " zones of " +
         std::to_string(settings.geometry.zoneBlocks) + " blocks";
}

std::string describeAtomicSegments(const AtomicSegments& segments) {
  return segments.limited() ? ", atomic segments of " + std::to_string(segments.leastBlocks) + " to " +
                                  std::to_string(segments.mostBlocks) + " blocks"
                            : "";
}

}  // namespace

SimDrive::SimDrive(const SimSettings& settings)
    : settings_(settings),
      capabilities_{.atomicWrite = true,
                    .atomicSegments = settings.atomicSegments,
                    .writeSame = true,
                    .trim = !settings.hostManaged,
                    .verify = true,
                    .syncCache = true,
                    .powerToggle = true,
                    .deviceReset = true,
                    .volatileCache = settings.volatileCache,
                    .zoneReset = settings.geometry.zoneBlocks != 0,
                    .hostManaged = settings.hostManaged,
                    .invalidate = true,
                    .worksInCalls = true},
      store_(settings_.geometry, settings.hostManaged ? SimMedium::Unwritten::zeros : SimMedium::Unwritten::pattern,
             settings.volatileCache ? settings.cacheBlocks : 0, settings.tear, settings.seed),
      zones_(settings_.geometry, settings.hostManaged),
      schedule_(settings.depth, settings.seed),
      errors_(settings.errors, settings.seed),
      accidents_(settings.seed ^ accidentsStream) {
  refused_.reserve(settings.depth);
}

std::string SimDrive::description() const {
  return "simulated drive, " + describeGeometry(settings_.geometry) + ", " +
         (settings_.volatileCache ? "volatile write cache" : "no volatile cache") + describeZones(settings_) +
         describeAtomicSegments(settings_.atomicSegments) + ", seed " + std::to_string(settings_.seed);
}

void SimDrive::submit(const DriveCommand& command) {
  schedule_.add(command);
  std::optional<Sense> refusal = refuse(command, settings_.geometry, capabilities_);
  if (!refusal) {
    refusal = zones_.admit(command);
  }
  if (refusal) {
    refused_.push_back({command.id, *refusal});
  }
}

std::optional<Sense> SimDrive::takeRefusal(uint64_t id) {
  const auto found = std::find_if(refused_.begin(), refused_.end(), [id](const Refusal& one) { return one.id == id; });
  if (found == refused_.end()) {
    return std::nullopt;
  }
  const Sense sense = found->sense;
  refused_.erase(found);
  return sense;
}

bool SimDrive::poll(DriveCompletion& out, bool wait) {
  DriveCommand command;
  if (!schedule_.take(command, wait)) {
    return false;
  }
  out.tag = command.tag;
  out.id = command.id;
  out.status = scsi_status::good;
  out.bytesTransferred = 0;
  out.senseBytes = 0;
  if (const std::optional<Sense> refusal = takeRefusal(command.id)) {
    setSense(out, *refusal);
  } else {
    answer(command, out);
  }
  return true;
}

void SimDrive::answer(const DriveCommand& command, DriveCompletion& out) {
  const SimAccident accident = errors_.next(command);
  std::optional<uint64_t> information;
  if (accident.failing) {
    information = command.lbaOf(*accident.failing);
  }
  switch (accident.kind) {
    case SimAccident::Kind::none:
      carryOut(command, out);
      break;
    case SimAccident::Kind::aborted:
      carryOutPartly(command, TearUnit::block, errors_.chance());
      out.status = scsi_status::aborted;
      break;
    case SimAccident::Kind::writeError:
      failWrite(command, accident);
      setSense(out, accident.sense, information);
      break;
    case SimAccident::Kind::readError:
      setSense(out, accident.sense, information);
      break;
    case SimAccident::Kind::recovered:
      carryOut(command, out);
      if (out.status == scsi_status::good) {  // a verify may have found a difference
        const uint64_t bytes = out.bytesTransferred;
        setSense(out, accident.sense, information);
        out.bytesTransferred = bytes;
      }
      break;
  }
}

void SimDrive::failWrite(const DriveCommand& command, const SimAccident& accident) {
  // While there is power no block is torn inside.
  if (!accident.failing) {
    carryOutPartly(command, TearUnit::block, errors_.chance());
    return;
  }
  store_.change(command, 0, *accident.failing);
  store_.changeSome(command, *accident.failing, TearUnit::block, errors_.chance());
}

void SimDrive::carryOut(const DriveCommand& command, DriveCompletion& out) {
  switch (command.kind) {
    case CommandKind::write:
    case CommandKind::writeAtomic:
    case CommandKind::writeSame:
    case CommandKind::trim:
      store_.change(command, 0, command.blocks);
      break;
    case CommandKind::read:
      store_.read(command);
      out.bytesTransferred = command.dataBytes;
      break;
    case CommandKind::verify:
      if (const std::optional<uint64_t> lba = store_.firstDifference(command)) {
        setSense(out, sense::miscompareDuringVerify, lba);
      }
      break;
    case CommandKind::syncCache:
      store_.flush();
      break;
    case CommandKind::zoneReset:
      resetZones(command, nullptr);
      break;
    case CommandKind::invalidate:
      invalidate(command, nullptr);
      break;
  }
}

/// @param chance resets each zone or not; null: all
void SimDrive::resetZones(const DriveCommand& command, Random* chance) {
  for (uint64_t lba = command.lba; lba < command.endLba(); lba = zones_.zoneEnd(lba)) {
    if (chance == nullptr || chance->below(2) == 0) {
      store_.erase(lba, zones_.zoneEnd(lba) - lba);
      zones_.rewind(lba);
    }
  }
}

/// @param chance invalidates each block or not; null: all
void SimDrive::invalidate(const DriveCommand& command, Random* chance) {
  for (uint32_t i = 0; i < command.blocks; ++i) {
    const uint64_t lba = command.lbaOf(i);
    // Above a write pointer there is no content that could be lost, and it must stay zero.
    if ((chance == nullptr || chance->below(2) == 0) && !zones_.empty(lba)) {
      store_.invalidate(lba);
    }
  }
}

void SimDrive::carryOutPartly(const DriveCommand& command, TearUnit unit, Random& chance) {
  if (!changesMedium(command.kind) || command.blocks == 0) {
    return;
  }
  enum Progress : uint64_t { notBegun, halfDone, done, count };
  const uint64_t progress = chance.below(count);
  if (progress == notBegun) {
    return;
  }
  Random* const some = progress == done ? nullptr : &chance;
  if (command.kind == CommandKind::zoneReset) {
    resetZones(command, some);
  } else if (command.kind == CommandKind::invalidate) {
    invalidate(command, some);
  } else if (progress == done) {
    store_.change(command, 0, command.blocks);
  } else {
    store_.changeSome(command, 0, unit, chance);
  }
}

void SimDrive::reset() {
  DriveCommand command;
  while (schedule_.takeAny(command)) {
    if (!takeRefusal(command.id)) {
      carryOutPartly(command, settings_.tear, accidents_);
    }
  }
}

void SimDrive::powerCycle() {
  reset();
  store_.losePower(accidents_);
}

}  // namespace corvane::host
