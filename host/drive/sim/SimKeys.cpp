// What an address of a simulated drive may say.

#include <algorithm>
#include <bit>
#include <limits>
#include <memory>
#include <optional>
#include <string>

#include "host/drive/DriveAddress.h"
#include "host/drive/GeometryKeys.h"
#include "host/drive/sim/SimDrive.h"
#include "host/drive/sim/SimErrors.h"

namespace corvane::host {
namespace {

constexpr uint64_t usualSizeBytes = uint64_t{1} << 30;

TearUnit tearUnitOf(const std::string& word) {
  return word == "sector" ? TearUnit::sector : word == "4k" ? TearUnit::fourKiB : TearUnit::block;
}

AtomicSegments takeAtomicSegments(DriveAddress& address) {
  constexpr uint64_t mostBlocks = 0xFFFF;  // what WRITE ATOMIC(16) can say
  AtomicSegments segments;
  segments.leastBlocks = static_cast<uint32_t>(address.number("atomic-least", 1, 1, mostBlocks));
  segments.mostBlocks = static_cast<uint32_t>(address.number("atomic-most", 0, 0, mostBlocks));
  if (segments.leastBlocks > 1 && !segments.limited()) {
    address.refuse("atomic-least=" + std::to_string(segments.leastBlocks) +
                   " needs an upper limit too; add it, as in atomic-most=" + std::to_string(segments.leastBlocks));
  }
  if (segments.limited() && std::bit_ceil(segments.leastBlocks) > segments.mostBlocks) {
    address.refuse("there is no power of two from atomic-least=" + std::to_string(segments.leastBlocks) +
                   " to atomic-most=" + std::to_string(segments.mostBlocks) + ", and segments are powers of two");
  }
  return segments;
}

uint64_t zoneBlocksOf(const DriveAddress& address, std::optional<uint64_t> bytes, const SimSettings& settings) {
  if (!bytes) {
    if (settings.hostManaged) {
      address.refuse("zonemodel=managed needs zones; add their size, as in zones=1m");
    }
    return 0;
  }
  const uint64_t unit = settings.geometry.sectorBytes();
  const std::string given = "zones=" + std::to_string(*bytes) + " bytes ";
  if (*bytes % unit != 0) {
    address.refuse(given + "are not a whole number of sectors of " + std::to_string(unit) +
                   " bytes; choose a multiple, such as " + std::to_string(std::max(*bytes / unit, uint64_t{1}) * unit));
  }
  if (*bytes / unit > settings.geometry.blocks) {
    address.refuse(given + "are more than the drive's " + std::to_string(settings.geometry.blocks * unit));
  }
  return *bytes / unit;
}

SimSettings takeSettings(DriveAddress& address, uint64_t seed) {
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
  const std::optional<uint64_t> zoneBytes = address.sizeBytes("zones");
  settings.hostManaged = address.word("zonemodel", {"aware", "managed"}) == "managed";
  settings.volatileCache = address.word("cache", {"none", "volatile"}) == "volatile";
  settings.tear = tearUnitOf(address.word("tear", {"block", "sector", "4k"}));
  settings.atomicSegments = takeAtomicSegments(address);
  settings.depth = static_cast<uint32_t>(address.number("depth", 1024, 1, 1024));
  settings.errors = takeErrorRates(address);
  settings.seed = address.number("seed", seed, 0, std::numeric_limits<uint64_t>::max());
  address.checkAllTaken();
  settings.geometry.blocks = blocksOf(address, sizeBytes, settings.geometry);
  settings.geometry.zoneBlocks = zoneBlocksOf(address, zoneBytes, settings);
  return settings;
}

}  // namespace

std::unique_ptr<Drive> openSimDrive(DriveAddress& address, uint64_t seed) {
  return std::make_unique<SimDrive>(takeSettings(address, seed));
}

void checkSimAddress(DriveAddress& address) { takeSettings(address, 0); }

std::string simDriveHelp() {
  return "sim:[SIZE][,key=value]...\n"
         "  a simulated drive in memory, 1g unless SIZE is given; memory is taken as blocks are written\n" +
         geometryKeysHelp() +
         "  cache=none       none, or volatile: acknowledged writes need a flush to survive a power cut\n"
         "  tear=block       what a reset or power cut leaves done or undone as a whole: block, sector (512 bytes),\n"
         "                   or 4k (aligned 4 KiB)\n"
         "  zones=SIZE       bytes of a zone, whole sectors; zones can be reset; the last one may be shorter\n"
         "  zonemodel=aware  aware: writes go anywhere; managed: a zone is written at its write pointer only\n"
         "  atomic-most=0    blocks of the longest segment that is written atomically; segments are then powers of "
         "two\n"
         "                   at multiples of their length, and others are refused; 0: no limits\n"
         "  atomic-least=1   blocks of the shortest such segment\n"
         "  depth=1024       commands that it takes at once, 1 to 1024\n" +
         errorRatesHelp() + "  seed=N           its own random choices; taken from the test's seed unless given\n";
}

}  // namespace corvane::host
