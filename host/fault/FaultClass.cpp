#include "host/fault/FaultClass.h"

#include <algorithm>

namespace corvane::host {
namespace {

constexpr uint32_t bytesOf4k = 4096;

bool writesData(CommandKind kind) {
  return kind == CommandKind::write || kind == CommandKind::writeAtomic || kind == CommandKind::writeSame;
}

/// Whether a boundary of 4 KiB lies within the blocks of the command.
bool crosses4k(const DriveCommand& command, const DriveGeometry& geometry) {
  const uint64_t unit = std::max<uint64_t>(1, bytesOf4k / geometry.blockSize);
  return command.blocks != 0 && command.lba / unit != (command.endLba() - 1) / unit;
}

}  // namespace

const std::vector<FaultClassInfo>& faultClasses() {
  using enum FaultClass;
  using enum FaultSymptom;
  static const std::vector<FaultClassInfo> classes{
      {bitFlipRest, "bit-flip-rest", "a bit of a written block changes while it rests on the medium", miscompare},
      {bitFlipWrite, "bit-flip-write", "a bit changes on the way to the medium", miscompare},
      {bitFlipRead, "bit-flip-read", "a bit changes on the way from the medium, once", miscompare},
      {lostWrite, "lost-write", "a write is acknowledged and changes nothing", miscompare},
      {staleRead, "stale-read", "a read returns what a block held before its last write, once", miscompare},
      {misdirectedWrite, "misdirected-write", "a write goes to other blocks near by", miscompare},
      {misdirectedRead, "misdirected-read", "a read returns other blocks near by, once", miscompare},
      {tornWrite, "torn-write", "an acknowledged write stores its first sectors only", miscompare},
      {tornWrite4k, "torn-write-4k", "an acknowledged write stores only its part before a boundary of 4 KiB",
       miscompare},
      {writeSplice, "write-splice", "a write fails half way, and some of its blocks cannot be read any more", splice},
      {atomicTear, "atomic-tear", "an aborted atomic write changes a part of one of its segments", atomicOrder},
      {orderInversion, "order-inversion", "of two overlapping writes the earlier one is stored last", miscompare},
      {readOvertakes, "read-overtakes", "a read soon after a write returns the content before it", miscompare},
      {trimIgnored, "trim-ignored", "a trim is acknowledged and leaves the data", miscompare},
      {trimTooFar, "trim-too-far", "a trim zeroes blocks behind its end too", miscompare},
      {writeSameShort, "write-same-short", "a write-same leaves its last block out", miscompare},
      {wrongStatus, "wrong-status", "a write fails half way and is reported as good", miscompare},
      {lyingFlush, "lying-flush", "a cache flush is acknowledged and stores nothing; the next power cut shows it",
       miscompare},
      {verifyAlwaysEqual, "verify-always-equal", "from then on every verify finds its data equal; one block is damaged",
       miscompare},
      {verifyFalseAlarm, "verify-false-alarm", "a verify reports a miscompare on good data", miscompare},
      {crossTalk, "cross-talk", "a block of another drive's data lands in a write to this one", miscompare},
      {zeroedBlock, "zeroed-block", "a written block turns to zeros", miscompare},
      {swappedBlock, "swapped-block", "two neighbouring blocks of a write change places", miscompare},
      {protectionDamage, "protection-damage", "a bit of a block's protection bytes changes", miscompare},
      {zoneResetIgnored, "zone-reset-ignored", "a zone reset is acknowledged and leaves the data", miscompare},
      {invalidateIgnored, "invalidate-ignored", "blocks that were declared invalid still show their old data",
       miscompare},
      {mixedCommands, "mixed-commands", "one block holds parts of two commands' data", miscompare},
  };
  return classes;
}

const FaultClassInfo& faultClassInfo(FaultClass what) { return faultClasses().at(static_cast<size_t>(what)); }

std::vector<std::string> faultClassNames() {
  std::vector<std::string> names;
  for (const FaultClassInfo& info : faultClasses()) {
    names.emplace_back(info.name);
  }
  return names;
}

std::optional<FaultClass> faultClassNamed(std::string_view name) {
  const auto& classes = faultClasses();
  const auto found = std::find_if(classes.begin(), classes.end(), [&](const auto& info) { return name == info.name; });
  return found == classes.end() ? std::nullopt : std::optional(found->what);
}

bool canStrike(FaultClass what, const DriveCommand& command, const DriveGeometry& geometry) {
  const CommandKind kind = command.kind;
  if (kind != CommandKind::syncCache && command.blocks == 0) {
    return false;
  }
  switch (what) {
    case FaultClass::bitFlipRead:
    case FaultClass::misdirectedRead:
      return kind == CommandKind::read;
    case FaultClass::tornWrite:
      return (kind == CommandKind::write || kind == CommandKind::writeAtomic) &&
             (command.blocks > 1 || geometry.blockSize > 512);
    case FaultClass::tornWrite4k:
      return (kind == CommandKind::write || kind == CommandKind::writeAtomic) && crosses4k(command, geometry);
    case FaultClass::writeSplice:
      return kind == CommandKind::write || kind == CommandKind::writeSame;
    case FaultClass::atomicTear:
      return kind == CommandKind::writeAtomic && command.blocks > 1 && command.atomicBound > 1;
    case FaultClass::swappedBlock:
      return (kind == CommandKind::write || kind == CommandKind::writeAtomic) && command.blocks > 1;
    case FaultClass::trimIgnored:
    case FaultClass::trimTooFar:
      return kind == CommandKind::trim;
    case FaultClass::writeSameShort:
      return kind == CommandKind::writeSame && command.blocks > 1;
    case FaultClass::lyingFlush:
      return kind == CommandKind::syncCache;
    case FaultClass::verifyFalseAlarm:
      return kind == CommandKind::verify;
    case FaultClass::protectionDamage:
      return writesData(kind) && geometry.protectionBytes != 0;
    case FaultClass::zoneResetIgnored:
      return kind == CommandKind::zoneReset;
    case FaultClass::invalidateIgnored:
      return kind == CommandKind::invalidate;
    default:
      return writesData(kind);
  }
}

}  // namespace corvane::host
