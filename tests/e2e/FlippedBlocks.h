#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "host/run/CheckedBlocks.h"
#include "host/run/RunResult.h"
#include "host/selftest/Workload.h"

namespace corvane::host::e2e {

/// Which look at a block is the one that goes wrong.
enum class FlipWhere : uint8_t {
  anyBlock,    ///< a block of any good read; the drive flips the bit
  anyVerify,   ///< any good verify; the drive says that it found a difference
  uncertain,   ///< a read block that the account does not count as one with one outcome
  underAtomic  ///< one that an atomic write of unknown end is above
};

/// One test in which one bit of one read block, or the answer to one verify, was wrong.
struct FlippedRun {
  RunResult result;
  bool flipped = false;
  uint64_t lba = 0;
  std::optional<BlockWorth> worth;  ///< as the account had it; nothing when the read was one ahead of an atomic write

  /// Whether the agent did what the account says that it does.
  bool agrees() const;
  std::string describe() const;
};

/// All of them.
inline constexpr FlipWhere flipPlaces[]{FlipWhere::anyBlock, FlipWhere::anyVerify, FlipWhere::uncertain,
                                        FlipWhere::underAtomic};

/// Runs a workload's test with one wrong answer. All follows from the seed.
FlippedRun runFlipped(const Workload& workload, FlipWhere where, uint64_t seed);

/// The workloads of the self-test, and more that mix what they keep apart: accidents with every kind of command, slid
/// reads, queues so short that blocks are read while their write is outstanding.
std::vector<Workload> flippedWorkloads();

}  // namespace corvane::host::e2e
