#pragma once

#include <bitset>
#include <cstdint>
#include <random>
#include <string>

#include "ConfigData.h"
#include "Framework.h"

namespace randomhost {

/// The one source of chance of an episode.
class Dice {
 public:
  explicit Dice(uint64_t seed) : engine_(seed) {}
  uint64_t any() { return engine_(); }
  /// 0 to n - 1.
  uint64_t below(uint64_t n) { return engine_() % n; }
  bool oneIn(uint64_t n) { return below(n) == 0; }
  template <typename Value>
  Value of(std::initializer_list<Value> values) {
    return values.begin()[below(values.size())];
  }

 private:
  std::mt19937_64 engine_;
};

/// What a framework or a drive may do wrong. An episode draws which of them it knows, so that rare ones are not drowned
/// by those that end a test at once.
enum class Misdeed : uint32_t {
  completesTwice,       ///< a completion that was given before, whatever its tag is used for now
  completesUnknownTag,  ///< any tag, used or not, also beyond the tags that there are
  neverCompletes,       ///< the command is lost and its tag used again
  forgetsToIssue,       ///< a condition was applied and no command follows
  completesOutOfOrder,  ///< overlapping commands are answered in any order
  ordersOldStatus,      ///< status 0 on tag 0 while nothing finished
  oddStatus,            ///< busy, task set full, reservation conflict and what no standard knows
  checkCondition,       ///< with every shape of sense data
  brokenSense,          ///< no sense, too short, cut off, a size without bytes
  abortsReads,
  abortsWrites,
  withholdsReadData,  ///< no buffer, or "ReadDataIsValid" is 0
  shortReadData,
  longReadData,  ///< 8 bytes more a block, or anything
  wrongData,
  tornData,     ///< the blocks of two states of the medium
  foreignData,  ///< another block's
  resets,
  cutsPower,
  resetsZones,
  invalidatesRanges,
  oddLength,  ///< 0, as many as there are buckets, more
  oddLba,     ///< the last ones there are
  oddBound,
  oddConditions,
  oddTag,  ///< peeked tags that are in use, or that the drive does not have
  mutexFails,
  restarts,
  stopsInBetween,
  sharesNoData,  ///< "DeviceInterface" says that there is no sense data
  count
};

using Misdeeds = std::bitset<static_cast<size_t>(Misdeed::count)>;

/// What an episode is like.
struct Plan {
  bool lawful = false;  ///< keeps the host's contract: nothing may be found then
  Misdeeds misdeeds;
  MapPlan maps;

  uint32_t blockSize = 512;
  bool protection = false;
  uint32_t queueDepth = 8;
  uint32_t longest = 8;  ///< blocks of a transfer
  uint64_t firstLba = 0;
  uint64_t lbas = 64;
  uint64_t minLba = 0;
  uint64_t maxLba = 0;
  bool powerIsDue = false;  ///< the last power-on lies far back when the test starts
  int ostraDevice = -1;

  bool does(Misdeed misdeed) const { return misdeeds[static_cast<size_t>(misdeed)]; }
};

// The bits of the conditions, unless an episode mixes them.
namespace bit {
constexpr uint64_t read = 1;
constexpr uint64_t verify = 2;
constexpr uint64_t write = 4;
constexpr uint64_t atomic = 8;
constexpr uint64_t same = 16;
constexpr uint64_t trim = 32;
constexpr uint64_t e2e = 64;
constexpr uint64_t toggle = 128;
constexpr uint64_t sync = 256;
}  // namespace bit

/// Draws a plan and the options that go with it.
Plan drawPlan(Dice& dice, vdl::Corvane::ConfigData& config, const std::string& folder);

/// Other options for the same drive, as between two tests.
void redrawOptions(Dice& dice, const Plan& plan, vdl::Corvane::ConfigData& config, const std::string& folder);

/// What the start of a test must return, by the options alone.
int startResult(const Plan& plan, const vdl::Corvane::ConfigData& config);
/// Whether the start gets as far as a trace: later refusals leave one.
bool startMakesTrace(const vdl::Corvane::ConfigData& config);

}  // namespace randomhost
