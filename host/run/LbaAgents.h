#pragma once

#include <array>
#include <cstdint>

#include "host/base/Random.h"
#include "host/run/LbaAgent.h"

namespace corvane::host {

/// Random LBA, random length.
class MixedAgent final : public LbaAgent {
 public:
  MixedAgent(const LbaLimits& limits, uint64_t seed) : limits_(limits), random_(seed) {}
  LbaChoice next() override;

 private:
  LbaLimits limits_;
  Random random_;
};

/// From the start of the range to its end and again; the last command before the end is cut to fit, or left out
/// when less than the shortest length is left.
class SequentialAgent final : public LbaAgent {
 public:
  SequentialAgent(const LbaLimits& limits, uint64_t seed) : limits_(limits), random_(seed), cursor_(limits.firstLba) {}
  LbaChoice next() override;

 private:
  void wrap();

  LbaLimits limits_;
  Random random_;
  uint64_t cursor_;
  bool shifted_ = false;
};

/// Works on a small region for a while, then moves to another one. Within it most commands relate to one of the
/// latest: the same start, shifted by one block, a part of it, across its start or its end, or right behind it.
/// Those are the cases in which a cache has to merge, split, replace or invalidate what it holds.
class CacheStressAgent final : public LbaAgent {
 public:
  CacheStressAgent(const LbaLimits& limits, uint64_t seed);
  LbaChoice next() override;

 private:
  static constexpr uint32_t regionCommands = 64;  ///< longest commands that fit into a region
  static constexpr uint32_t minStay = 256;        ///< commands before the region moves
  static constexpr uint32_t maxStay = 2048;
  static constexpr size_t remembered = 16;

  void moveRegion();
  LbaChoice related(const LbaChoice& to);
  LbaChoice anywhere();
  /// Puts a choice into the region, cutting nothing: the start moves.
  LbaChoice fitted(uint64_t lba, uint64_t blocks) const;
  uint32_t length() { return static_cast<uint32_t>(random_.between(limits_.minBlocks, limits_.maxBlocks)); }

  LbaLimits limits_;
  Random random_;
  uint64_t regionFirst_ = 0;
  uint64_t regionEnd_ = 0;
  uint32_t stay_ = 0;
  std::array<LbaChoice, remembered> latest_{};
  size_t latestCount_ = 0;
};

}  // namespace corvane::host
