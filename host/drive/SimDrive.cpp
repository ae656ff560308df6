#include "host/drive/SimDrive.h"

#include <algorithm>
#include <cstring>
#include <limits>
#include <stdexcept>

#include "host/drive/CommandCheck.h"
#include "host/drive/GeometryKeys.h"
#include "host/drive/SenseData.h"

namespace corvane::host {
namespace {

constexpr uint64_t usualSizeBytes = uint64_t{1} << 30;
constexpr uint64_t accidentsStream = 0x5EED;  ///< keeps the two random sequences of a seed apart

uint64_t unitBytes(const DriveCommand& command, const DriveGeometry& geometry) {
  return uint64_t{geometry.sectorBytes()} + command.trailerBytes;
}

}  // namespace

SimDrive::SimDrive(const SimSettings& settings)
    : settings_(settings),
      capabilities_{.atomicWrite = true,
                    .writeSame = true,
                    .trim = true,
                    .verify = true,
                    .syncCache = true,
                    .powerToggle = true,
                    .deviceReset = true,
                    .volatileCache = settings.volatileCache},
      medium_(settings.geometry.sectorBytes()),
      cache_(settings.volatileCache ? std::make_unique<SimCache>(medium_, settings.cacheBlocks) : nullptr),
      schedule_(settings.depth, settings.seed),
      accidents_(settings.seed ^ accidentsStream) {}

std::string SimDrive::description() const {
  return "simulated drive, " + describeGeometry(settings_.geometry) + ", " +
         (settings_.volatileCache ? "volatile write cache" : "no volatile cache") + ", seed " +
         std::to_string(settings_.seed);
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
  if (const std::optional<Sense> refusal = refuse(command, settings_.geometry, capabilities_)) {
    setSense(out, *refusal);
  } else {
    carryOut(command, out);
  }
  return true;
}

void SimDrive::carryOut(const DriveCommand& command, DriveCompletion& out) {
  switch (command.kind) {
    case CommandKind::write:
    case CommandKind::writeAtomic:
    case CommandKind::writeSame:
    case CommandKind::trim:
      change(command, 0, command.blocks);
      break;
    case CommandKind::read:
      read(command);
      out.bytesTransferred = command.dataBytes;
      break;
    case CommandKind::verify:
      if (const std::optional<uint64_t> lba = firstDifference(command)) {
        setSense(out, sense::miscompareDuringVerify, lba);
      }
      break;
    case CommandKind::syncCache:
      if (cache_ != nullptr) {
        cache_->flush();
      }
      break;
    case CommandKind::zoneReset:
    case CommandKind::invalidate:
      throw std::logic_error("not offered");
  }
}

void SimDrive::change(const DriveCommand& command, uint32_t firstBlock, uint32_t blocks) {
  const bool oneRun = command.lbaStep == 1 && (command.kind == CommandKind::trim ||
                                               (command.kind != CommandKind::writeSame && command.trailerBytes == 0));
  if (oneRun) {
    changeRun(command, firstBlock, blocks);
    return;
  }
  for (uint32_t i = 0; i < blocks; ++i) {
    changeRun(command, firstBlock + i, 1);
  }
}

void SimDrive::changeRun(const DriveCommand& command, uint32_t block, uint32_t blocks) {
  if (blocks == 0) {
    return;
  }
  const uint64_t lba = command.lba + uint64_t{block} * command.lbaStep;
  // An atomic write goes through, so that a power cut cannot tear one that waits in the cache.
  const bool through = command.forceUnitAccess || command.kind == CommandKind::writeAtomic;
  if (cache_ != nullptr && !through) {
    cache_->beforeChange(lba, blocks);
  }
  if (command.kind == CommandKind::trim) {
    medium_.zero(lba, blocks);
  } else {
    const uint64_t offset =
        command.kind == CommandKind::writeSame ? 0 : uint64_t{block} * unitBytes(command, settings_.geometry);
    medium_.write(lba, blocks, command.data + offset);
  }
  if (cache_ != nullptr && through) {
    cache_->writtenThrough(lba, blocks);
  }
}

void SimDrive::read(const DriveCommand& command) {
  if (command.lbaStep == 1 && command.trailerBytes == 0) {
    medium_.read(command.lba, command.blocks, command.data);
    return;
  }
  const uint64_t unit = unitBytes(command, settings_.geometry);
  for (uint32_t i = 0; i < command.blocks; ++i) {
    uint8_t* block = command.data + i * unit;
    medium_.read(command.lba + uint64_t{i} * command.lbaStep, 1, block);
    std::memset(block + settings_.geometry.sectorBytes(), 0, command.trailerBytes);
  }
}

std::optional<uint64_t> SimDrive::firstDifference(const DriveCommand& command) {
  const uint64_t unit = unitBytes(command, settings_.geometry);
  for (uint32_t i = 0; i < command.blocks; ++i) {
    const uint64_t lba = command.lba + uint64_t{i} * command.lbaStep;
    if (std::memcmp(medium_.sector(lba), command.data + i * unit, settings_.geometry.sectorBytes()) != 0) {
      return lba;
    }
  }
  return std::nullopt;
}

void SimDrive::carryOutPartly(const DriveCommand& command) {
  if (!changesMedium(command.kind) || command.blocks == 0 ||
      refuse(command, settings_.geometry, capabilities_).has_value()) {
    return;
  }
  enum Progress : uint64_t { notBegun, halfDone, done, count };
  const uint64_t progress = accidents_.below(count);
  if (progress == done) {
    change(command, 0, command.blocks);
  } else if (progress == halfDone && command.kind == CommandKind::writeAtomic) {
    const uint32_t segment = command.atomicBound == 0 ? command.blocks : command.atomicBound;
    for (uint32_t first = 0; first < command.blocks; first += std::min(segment, command.blocks - first)) {
      if (accidents_.below(2) == 0) {
        change(command, first, std::min(segment, command.blocks - first));
      }
    }
  } else if (progress == halfDone) {
    change(command, 0, static_cast<uint32_t>(accidents_.below(command.blocks)));
  }
}

void SimDrive::reset() {
  DriveCommand command;
  while (schedule_.takeAny(command)) {
    carryOutPartly(command);
  }
}

void SimDrive::powerCycle() {
  reset();
  if (cache_ != nullptr) {
    cache_->lose(accidents_);
  }
}

std::unique_ptr<Drive> openSimDrive(DriveAddress& address, uint64_t seed) {
  SimSettings settings;
  settings.geometry = takeGeometry(address);
  uint64_t sizeBytes = usualSizeBytes / settings.geometry.sectorBytes() * settings.geometry.sectorBytes();
  if (!address.target().empty()) {
    const std::optional<uint64_t> given = parseSizeBytes(address.target());
    if (!given || *given == 0) {
      address.refuse("'" + address.target() + "' is not a size; write bytes, or a number with k, m, g or t, as in 1g");
    }
    sizeBytes = *given;
  }
  settings.volatileCache = address.word("cache", {"none", "volatile"}) == "volatile";
  settings.depth = static_cast<uint32_t>(address.number("depth", 1024, 1, 1024));
  settings.seed = address.number("seed", seed, 0, std::numeric_limits<uint64_t>::max());
  address.checkAllTaken();
  settings.geometry.blocks = blocksOf(address, sizeBytes, settings.geometry);
  return std::make_unique<SimDrive>(settings);
}

std::string simDriveHelp() {
  return "sim:[SIZE][,key=value]...\n"
         "  a simulated drive in memory, 1g unless SIZE is given; memory is taken as blocks are written\n" +
         geometryKeysHelp() +
         "  cache=none       none, or volatile: acknowledged writes need a flush to survive a power cut\n"
         "  depth=1024       commands that it takes at once, 1 to 1024\n"
         "  seed=N           its own random choices; taken from the test's seed unless given\n";
}

}  // namespace corvane::host
