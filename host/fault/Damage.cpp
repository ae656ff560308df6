#include "host/fault/Damage.h"

#include <algorithm>

namespace corvane::host {
namespace {

constexpr uint64_t farthestBlocks = 32;  ///< how far off a misdirected command goes
constexpr uint32_t tornSectorBytes = 512;
constexpr uint64_t tornPageBytes = 4096;
constexpr uint32_t stampBytes = 32;  ///< of a block that say what it is

/// One strike: the input, and the damage as it grows.
class Strike {
 public:
  Strike(const DamageInput& input, Random& random)
      : what_(input.what),
        command_(input.command),
        geometry_(input.geometry),
        before_(input.before),
        input_(input),
        random_(random) {
    damage_.content = input.after;
  }

  std::optional<Damage> result() {
    if (!work()) {
      return std::nullopt;
    }
    return std::move(damage_);
  }

 private:
  bool work() {
    switch (what_) {
      case FaultClass::bitFlipRest:
      case FaultClass::bitFlipWrite:
      case FaultClass::verifyAlwaysEqual:
        flipBit(anyBlock(), 0, geometry_.sectorBytes());
        return true;
      case FaultClass::protectionDamage:
        flipBit(anyBlock(), geometry_.blockSize, geometry_.sectorBytes());
        return true;
      case FaultClass::zeroedBlock: {
        const uint64_t lba = anyBlock();
        std::ranges::fill(damage_.content.at(lba), uint8_t{0});
        return true;
      }
      case FaultClass::lostWrite:
      case FaultClass::trimIgnored:
      case FaultClass::zoneResetIgnored:
      case FaultClass::invalidateIgnored:
        restore(0, command_.blocks);
        return true;
      case FaultClass::writeSameShort:
        restore(command_.blocks - 1, command_.blocks);
        return true;
      case FaultClass::wrongStatus:
        failHalfWay();
        return true;
      case FaultClass::tornWrite:
        tear();
        return true;
      case FaultClass::tornWrite4k:
        return tearAt4k();
      case FaultClass::atomicTear:
        return tearSegment();
      case FaultClass::writeSplice:
        splice();
        return true;
      case FaultClass::orderInversion:
        return invert();
      case FaultClass::misdirectedWrite:
        return misdirect();
      case FaultClass::trimTooFar:
        return trimFurther();
      case FaultClass::swappedBlock:
        swapNeighbours();
        return true;
      case FaultClass::mixedCommands:
      case FaultClass::crossTalk:
        return mix();
      default:
        return false;
    }
  }

  uint64_t lbaOf(uint32_t block) const { return command_.lbaOf(block); }
  uint64_t anyBlock() { return lbaOf(static_cast<uint32_t>(random_.below(command_.blocks))); }

  void flipBit(uint64_t lba, uint32_t firstByte, uint32_t endByte) {
    const uint64_t byte = random_.between(firstByte, endByte - 1);
    damage_.content.at(lba)[byte] ^= static_cast<uint8_t>(1U << random_.below(8));
  }

  void restoreBytes(uint64_t lba, size_t firstByte) {
    const auto old = before_.at(lba).subspan(firstByte);
    std::ranges::copy(old, damage_.content.at(lba).subspan(firstByte).begin());
  }

  /// Puts the command's blocks from `first` to below `end` back.
  void restore(uint32_t first, uint32_t end) {
    for (uint32_t block = first; block < end; ++block) {
      restoreBytes(lbaOf(block), 0);
    }
  }

  void failHalfWay() {
    const auto failing = static_cast<uint32_t>(random_.below(command_.blocks));
    restoreBytes(lbaOf(failing), geometry_.sectorBytes() / 2);
    restore(failing + 1, command_.blocks);
  }

  void tear() {
    // Sectors are counted over the whole command: a tear inside a block of 4096 bytes is as likely as one between.
    const uint64_t perBlock = geometry_.blockSize / tornSectorBytes;
    const uint64_t kept = random_.between(1, perBlock * command_.blocks - 1);
    const auto tornBlock = static_cast<uint32_t>(kept / perBlock);
    restoreBytes(lbaOf(tornBlock), kept % perBlock * tornSectorBytes);
    restore(tornBlock + 1, command_.blocks);
  }

  bool tearAt4k() {
    const uint64_t page = std::max<uint64_t>(1, tornPageBytes / geometry_.blockSize);
    std::vector<uint32_t> cuts;
    for (uint32_t block = 1; block < command_.blocks; ++block) {
      if (lbaOf(block) / page != lbaOf(block - 1) / page) {
        cuts.push_back(block);
      }
    }
    if (cuts.empty()) {
      return false;
    }
    restore(cuts[random_.below(cuts.size())], command_.blocks);
    return true;
  }

  bool tearSegment() {
    // A segment that has two blocks; the last one may be cut short by the command's end.
    const uint32_t bound = command_.atomicBound;
    const uint32_t whole = command_.blocks / bound + (command_.blocks % bound > 1 ? 1U : 0U);
    if (whole == 0) {
      return false;
    }
    const auto segment = static_cast<uint32_t>(random_.below(whole));
    const uint32_t first = segment * bound;
    const uint32_t end = std::min(first + bound, command_.blocks);
    const auto cut = static_cast<uint32_t>(random_.between(first + 1, end - 1));
    const bool keepsBeginning = random_.below(2) == 0;
    restore(keepsBeginning ? cut : first, keepsBeginning ? end : cut);
    for (uint32_t block = first; block < end; ++block) {
      if ((block < cut) == keepsBeginning) {
        damage_.kept.insert(lbaOf(block));
      }
    }
    return true;
  }

  void splice() {
    const auto failing = static_cast<uint32_t>(random_.below(command_.blocks));
    restore(failing, command_.blocks);
    damage_.unreadable.insert(lbaOf(failing));
  }

  bool invert() {
    // What lay there is the earlier write's data, as nothing else came between.
    const RecentCommands::Range* earlier = input_.recent.latestWriteOver(command_.lba, command_.endLba());
    if (earlier == nullptr) {
      return false;
    }
    bool shared = false;
    for (uint32_t block = 0; block < command_.blocks; ++block) {
      if (earlier->contains(lbaOf(block))) {
        restoreBytes(lbaOf(block), 0);
        shared = true;
      }
    }
    return shared;
  }

  bool misdirect() {
    const uint64_t lowest = before_.first();
    const uint64_t highest = before_.end() - (command_.endLba() - command_.lba);
    const uint64_t target = random_.between(lowest, highest);
    if (target == command_.lba) {
      return false;
    }
    restore(0, command_.blocks);
    for (uint32_t block = 0; block < command_.blocks; ++block) {
      const auto data = input_.after.at(lbaOf(block));
      std::ranges::copy(data, damage_.content.at(target + uint64_t{block} * command_.lbaStep).begin());
    }
    damage_.note = "went to LBA " + std::to_string(target);
    return true;
  }

  bool trimFurther() {
    const uint64_t end = command_.endLba();
    if (end == before_.end()) {
      return false;
    }
    const uint64_t further = random_.between(1, before_.end() - end);
    for (uint64_t lba = end; lba < end + further; ++lba) {
      std::ranges::fill(damage_.content.at(lba), uint8_t{0});
    }
    return true;
  }

  void swapNeighbours() {
    const auto block = static_cast<uint32_t>(random_.below(command_.blocks - 1));
    std::ranges::swap_ranges(damage_.content.at(lbaOf(block)), damage_.content.at(lbaOf(block + 1)));
  }

  bool mix() {
    if (input_.otherData.size() != geometry_.sectorBytes()) {
      return false;
    }
    // Cross-talk brings a whole block. Of two mixed ones either the beginning with its stamp or the rest is foreign.
    const uint64_t lba = anyBlock();
    auto block = damage_.content.at(lba);
    size_t first = 0;
    size_t end = block.size();
    if (what_ == FaultClass::mixedCommands) {
      const uint64_t cut = random_.between(stampBytes, block.size() - stampBytes);
      (random_.below(2) == 0 ? first : end) = cut;
    }
    std::copy(input_.otherData.begin() + static_cast<std::ptrdiff_t>(first),
              input_.otherData.begin() + static_cast<std::ptrdiff_t>(end),
              block.begin() + static_cast<std::ptrdiff_t>(first));
    return true;
  }

  FaultClass what_;
  const DriveCommand& command_;
  const DriveGeometry& geometry_;
  const Sectors& before_;
  const DamageInput& input_;
  Random& random_;
  Damage damage_;
};

}  // namespace

Neighbourhood neighbourhoodOf(FaultClass what, const DriveCommand& command, const DriveGeometry& geometry) {
  Neighbourhood around{.first = command.lba, .end = command.endLba()};
  if (what == FaultClass::misdirectedWrite || what == FaultClass::misdirectedRead) {
    around.first -= std::min(around.first, farthestBlocks);
    around.end += std::min(geometry.blocks - around.end, farthestBlocks);
  } else if (what == FaultClass::trimTooFar) {
    around.end += std::min<uint64_t>(geometry.blocks - around.end, 4);
  }
  return around;
}

std::optional<Damage> damageOf(const DamageInput& input, Random& random) { return Strike(input, random).result(); }

}  // namespace corvane::host
