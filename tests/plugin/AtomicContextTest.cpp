#include "AtomicContext.h"

#include <gtest/gtest.h>

#include <functional>
#include <list>
#include <optional>
#include <random>
#include <string>
#include <vector>

#include "support_model/Allocations.h"

namespace vdl {
namespace {

/// What was observed on one block.
struct Seen {
  EventType type = EventType::None;  ///< None: nothing was observed
  uint64_t id = 0;
  uint32_t offset = 0;
  uint32_t length = 0;
};

constexpr Seen nothing{};
constexpr Seen hash{EventType::Hash, 1, 0, 0};
constexpr Seen invalidated{EventType::Invalidate, 0, 0, 0};
constexpr Seen W(uint64_t id) { return {EventType::Write, id, 0, 0}; }
constexpr Seen A(uint64_t id, uint32_t offset, uint32_t length) { return {EventType::Atomic, id, offset, length}; }

std::string name(const Seen& seen) {
  switch (seen.type) {
    case EventType::Write:
      return "W" + std::to_string(seen.id);
    case EventType::Atomic:
      return "A" + std::to_string(seen.id) + "(" + std::to_string(seen.offset) + "/" + std::to_string(seen.length) +
             ")";
    case EventType::Hash:
      return "H";
    case EventType::Invalidate:
      return "I";
    default:
      return "N";
  }
}

std::string name(const std::vector<Seen>& blocks) {
  std::string text;
  for (const Seen& seen : blocks) {
    text += name(seen) + " ";
  }
  return text;
}

/// Puts a block into a context in which exactly this was observed, by the context's own means.
void add(AtomicContext& context, uint64_t lba, const Seen& seen) {
  Event event;
  event.type = seen.type;
  event.cmd_id = seen.id;
  event.block_type = seen.type == EventType::Atomic ? BlockType::Atomic : BlockType::Normal;
  event.block_num = 5;
  event.segment = {seen.offset, seen.length, 0};
  context.copyHistory(lba, &event);
  if (seen.type != EventType::None) {
    LazyHasher unused(nullptr, nullptr);
    ASSERT_EQ(context.observe(lba, {5, {}}, unused), 0);
  }
}

/// The verdict: no LBA for a valid context, otherwise the LBA at which the rule broke.
std::optional<uint64_t> verdict(const AtomicContext& context) {
  uint64_t lba = 0xDEAD;
  if (context.atomicValid(lba)) {
    EXPECT_EQ(lba, 0xDEADU) << "touched although valid";
    return std::nullopt;
  }
  return lba;
}

std::optional<uint64_t> judge(const std::vector<Seen>& blocks, const std::vector<uint64_t>& lbas = {}) {
  AtomicContext context;
  for (std::size_t i = 0; i < blocks.size(); ++i) {
    add(context, lbas.empty() ? 100 + i : lbas[i], blocks[i]);
  }
  return verdict(context);
}

constexpr std::optional<uint64_t> valid = std::nullopt;

std::optional<uint64_t> brokenAt(uint64_t lba) { return lba; }

TEST(AtomicValid, AnEmptyContextIsValid) { EXPECT_EQ(judge({}), valid); }

TEST(AtomicValid, NormalWritesMayStandInAnyOrder) {
  EXPECT_EQ(judge({W(9), W(3), W(7)}), valid);
  EXPECT_EQ(judge({W(1), W(2), W(3)}), valid);
  EXPECT_EQ(judge({W(3), W(2), W(1)}), valid);
}

TEST(AtomicValid, AnOlderWriteInsideASeenSegmentFails) {
  EXPECT_EQ(judge({A(20, 0, 4), A(20, 1, 4), W(10), A(20, 3, 4)}), brokenAt(102));
  EXPECT_EQ(judge({A(20, 0, 4), A(20, 1, 4), W(7), A(20, 3, 4)}), brokenAt(102));
  EXPECT_EQ(judge({A(20, 0, 4), nothing, W(10), nothing}), brokenAt(102));
}

TEST(AtomicValid, ANewerWriteInsideASegmentPasses) {
  EXPECT_EQ(judge({A(20, 0, 4), A(20, 1, 4), W(30), A(20, 3, 4)}), valid);
  EXPECT_EQ(judge({A(20, 0, 4), W(30), W(30), W(30)}), valid);
}

TEST(AtomicValid, TheBackwardWalkFindsWhatTheForwardWalkCannot) {
  EXPECT_EQ(judge({W(30), W(10), W(10), A(20, 3, 4)}), brokenAt(102)) << "the highest block is reported";
  EXPECT_EQ(judge({W(10), W(10), W(10), A(20, 3, 4)}), brokenAt(102));
}

TEST(AtomicValid, PositionsCountBlocksOfTheContextNotLbas) {
  EXPECT_EQ(judge({A(20, 0, 4), W(10)}, {100, 103}), brokenAt(103));
  EXPECT_EQ(judge({A(20, 0, 2), W(30), W(10)}, {100, 101, 102}), valid) << "the segment ends at position 1";
  EXPECT_EQ(judge({A(20, 0, 2), W(10)}, {100, 500}), brokenAt(500)) << "position 1, wherever it lies";
}

TEST(AtomicValid, SegmentsMayNest) {
  EXPECT_EQ(judge({A(30, 0, 4), A(20, 0, 2), W(40), W(40)}), brokenAt(101));
  EXPECT_EQ(judge({A(20, 0, 4), A(30, 0, 2), A(30, 1, 2), A(20, 3, 4)}), valid);
  EXPECT_EQ(judge({A(20, 0, 4), A(30, 0, 2), W(25), A(20, 3, 4)}), brokenAt(102));
  EXPECT_EQ(judge({A(20, 0, 4), A(30, 0, 2), A(30, 1, 2), W(10)}), brokenAt(103)) << "the outer segment goes on";
}

TEST(AtomicValid, ASegmentOfLengthZeroReachesOverAllFromPositionZeroOnly) {
  EXPECT_EQ(judge({A(20, 0, 0), W(10)}), brokenAt(101));
  EXPECT_EQ(judge({W(10), A(20, 0, 0), W(10)}), valid);
}

TEST(AtomicValid, TwoSegmentsOfOneCommandAreIndependent) {
  const Seen n0 = A(20, 0, 4);
  const Seen n1 = A(20, 1, 4);
  const Seen n2 = A(20, 2, 4);
  const Seen n3 = A(20, 3, 4);
  const Seen o = W(10);
  EXPECT_EQ(judge({n0, n1, n2, n3, o, o, o, o}), valid);
  EXPECT_EQ(judge({o, o, o, o, n0, n1, n2, n3}), valid);
  EXPECT_EQ(judge({n0, n1, n2, n3, n0, o, n2, n3}), brokenAt(105));
}

TEST(AtomicValid, HashesInvalidationsAndUnobservedBlocksTakeNoPart) {
  EXPECT_EQ(judge({A(20, 0, 4), hash, invalidated, nothing}), valid);
  EXPECT_EQ(judge({hash, invalidated, nothing, W(1)}), valid);
  EXPECT_EQ(judge({nothing, A(20, 0, 2), W(10)}), brokenAt(102)) << "but they count as positions";
}

TEST(AtomicValid, ASingleBlockOfASegmentIsJudgedByItsNeighbours) {
  EXPECT_EQ(judge({A(20, 2, 4)}), valid);
  EXPECT_EQ(judge({W(10), A(20, 0, 1), W(10)}), valid) << "a segment of one block";
}

// ---- a naive judge, written from the rule and not from the code ----

struct OpenSegment {
  uint64_t id;
  uint32_t last;
};

/// One pass over the blocks in the order given; the index of the first block that breaks the rule.
std::optional<std::size_t> naivePass(const std::vector<Seen>& blocks, bool forward) {
  std::vector<OpenSegment> open;
  for (uint32_t position = 0; position < blocks.size(); ++position) {
    std::vector<OpenSegment> still = open;
    while (!still.empty() && still[still.size() - 1].last < position) {
      still.erase(still.end() - 1);
    }
    open = still;
    const Seen& seen = blocks[position];
    const bool takesPart = seen.type == EventType::Write || seen.type == EventType::Atomic;
    if (!takesPart) {
      continue;
    }
    uint64_t innermost = 0;
    if (!open.empty()) {
      innermost = open[open.size() - 1].id;
      if (innermost > seen.id) {
        return position;
      }
    }
    if (seen.type == EventType::Atomic && seen.id != innermost) {
      uint64_t end = forward ? uint64_t{position} + seen.length - seen.offset - 1 : uint64_t{position} + seen.offset;
      end &= 0xFFFFFFFF;
      if (end > position) {
        open.push_back({seen.id, static_cast<uint32_t>(end)});
      }
    }
  }
  return std::nullopt;
}

std::optional<uint64_t> naiveJudge(const std::vector<Seen>& blocks, const std::vector<uint64_t>& lbas) {
  if (const auto broken = naivePass(blocks, true)) {
    return lbas[*broken];
  }
  const std::vector<Seen> reversed(blocks.rbegin(), blocks.rend());
  if (const auto broken = naivePass(reversed, false)) {
    return lbas[lbas.size() - 1 - *broken];
  }
  return std::nullopt;
}

TEST(AtomicValidAgainstNaiveJudge, EveryContextOfUpToFourBlocksAndTwoAtomicCommands) {
  std::vector<Seen> alphabet = {nothing, hash, W(1), W(3), W(5)};
  for (const uint64_t id : {uint64_t{2}, uint64_t{4}}) {
    alphabet.push_back(A(id, 0, 0));
    for (uint32_t length = 1; length <= 4; ++length) {
      for (uint32_t offset = 0; offset < length; ++offset) {
        alphabet.push_back(A(id, offset, length));
      }
    }
  }
  const std::vector<uint64_t> lbas = {100, 101, 105, 106};
  uint64_t contexts = 0;
  uint64_t broken = 0;
  std::vector<Seen> blocks;
  const std::function<void()> extend = [&] {
    const std::vector<uint64_t> used(lbas.begin(), lbas.begin() + static_cast<std::ptrdiff_t>(blocks.size()));
    const auto expected = naiveJudge(blocks, used);
    ASSERT_EQ(judge(blocks, used), expected) << name(blocks);
    ++contexts;
    broken += expected ? 1U : 0U;
    if (blocks.size() == lbas.size()) {
      return;
    }
    for (const Seen& seen : alphabet) {
      blocks.push_back(seen);
      extend();
      blocks.pop_back();
      if (testing::Test::HasFatalFailure()) {
        return;
      }
    }
  };
  extend();
  EXPECT_EQ(contexts, 1U + 27 + 27 * 27 + 27 * 27 * 27 + 27 * 27 * 27 * 27);
  EXPECT_GT(broken, contexts / 10);
}

TEST(AtomicValidAgainstNaiveJudge, RandomContextsWithOddSegments) {
  std::mt19937_64 rng(20240611);
  const auto below = [&rng](uint64_t limit) { return rng() % limit; };
  uint64_t broken = 0;
  for (int round = 0; round < 50000; ++round) {
    std::vector<Seen> blocks(1 + below(12));
    std::vector<uint64_t> lbas;
    uint64_t lba = below(1000);
    for (Seen& seen : blocks) {
      lba += 1 + below(3);
      lbas.push_back(lba);
      const uint64_t kind = below(8);
      const auto offset = static_cast<uint32_t>(below(12));
      const auto length = below(50) == 0 ? 0xFFFFFFFFU - offset : static_cast<uint32_t>(below(12));
      seen = kind == 0 ? nothing : kind == 1 ? hash : kind < 5 ? W(below(8)) : A(below(8), offset, length);
    }
    const auto expected = naiveJudge(blocks, lbas);
    ASSERT_EQ(judge(blocks, lbas), expected) << name(blocks);
    broken += expected ? 1U : 0U;
  }
  EXPECT_GT(broken, 5000U);
}

// The promise itself, whatever the passes do: a segment is seen whole or not at all.
TEST(AtomicValidAgainstPromise, EverySegmentIsWhollyNewOrWhollyOld) {
  for (uint32_t segmentBlocks = 1; segmentBlocks <= 5; ++segmentBlocks) {
    for (uint32_t segments = 1; segments <= 2; ++segments) {
      const uint32_t blocks = segmentBlocks * segments;
      for (uint32_t newBlocks = 0; newBlocks < (1U << blocks); ++newBlocks) {
        std::vector<Seen> seen;
        bool promiseKept = true;
        for (uint32_t i = 0; i < blocks; ++i) {
          const bool isNew = ((newBlocks >> i) & 1) != 0;
          const bool firstIsNew = ((newBlocks >> (i / segmentBlocks * segmentBlocks)) & 1) != 0;
          promiseKept = promiseKept && isNew == firstIsNew;
          seen.push_back(isNew ? A(20, i % segmentBlocks, segmentBlocks) : W(10));
        }
        ASSERT_EQ(judge(seen) == valid, promiseKept) << name(seen);
      }
    }
  }
}

// ---- observe, peek and copyHistory ----

class ObserveTest : public testing::Test {
 protected:
  /// Appends an older event.
  Event& older(EventType type, uint64_t id, BlockType blockType, BlockNum number) {
    Event event;
    event.type = type;
    event.cmd_id = id;
    event.block_type = blockType;
    event.block_num = number;
    events.push_back(event);
    if (events.size() > 1) {
      std::prev(events.end(), 2)->next = &events.back();
    }
    return events.back();
  }

  void copy(uint64_t lba = 100) { context.copyHistory(lba, events.empty() ? nullptr : &events.front()); }

  int32_t observe(const ObserveData& observed, uint64_t lba = 100) {
    hasher = LazyHasher(block.data(), block.data() + block.size());
    return context.observe(lba, observed, hasher);
  }

  std::list<Event> events;
  AtomicContext context;
  std::vector<uint8_t> block = std::vector<uint8_t>(512, 0);
  static constexpr uint64_t blockHashValue = 0x653fcc6ee4f45deb;
  LazyHasher hasher{nullptr, nullptr};
};

constexpr ObserveData strange{0x7FFFF, {true, 999, 999}};

TEST_F(ObserveTest, ABlockOutsideTheContextIsAStatusOfItsOwn) {
  EXPECT_EQ(observe(strange), -1004);
  EXPECT_FALSE(hasher.computed);
  const PeekResult r = context.peek(100);
  EXPECT_EQ(r.status, -1004);
  EXPECT_EQ(r.block_type, BlockType::Unknown);
  EXPECT_EQ(r.block_num, 0x80001U);
  EXPECT_FALSE(r.invalidated);
  EXPECT_EQ(context.getHistory(100), "");
}

TEST_F(ObserveTest, CopyingNothingDoesNothing) {
  context.copyHistory(100, nullptr);
  EXPECT_TRUE(context.empty());
  older(EventType::Write, 5, BlockType::Normal, 7);
  copy();
  context.copyHistory(100, nullptr);
  EXPECT_EQ(context.peek(100).block_num, 7U);
}

TEST_F(ObserveTest, ACopyKeepsEveryFieldAndIsPrivate) {
  Event& e = older(EventType::Atomic, 5, BlockType::Normal, 7);
  e.hash = 0x99;
  e.embed = {true, 5, 100};
  e.segment = {1, 4, 2};
  copy();
  e.block_num = 8;
  e.hash = 0;
  e.embed = {};
  const PeekResult r = context.peek(100);
  EXPECT_EQ(r.block_num, 7U);
  EXPECT_EQ(r.hash, 0x99U);
  EXPECT_TRUE(r.embed.valid);
  EXPECT_EQ(r.embed.cmd_id, 5U);
  EXPECT_EQ(r.embed.lba, 100U);
}

TEST_F(ObserveTest, ASecondCopyReplacesTheNodeAndWhatItObserved) {
  older(EventType::Atomic, 9, BlockType::Atomic, 9);
  older(EventType::Write, 5, BlockType::Normal, 7);
  copy();
  EXPECT_EQ(observe({9, {}}), 0);
  EXPECT_EQ(context.peek(100).block_num, 9U);
  copy();
  EXPECT_EQ(context.peek(100).block_num, 7U);
  EXPECT_EQ(context.size(), 1U);
}

TEST_F(ObserveTest, TheNewestWriteIsRecognisedWithoutHashing) {
  older(EventType::Write, 5, BlockType::Normal, 7).embed = {true, 5, 100};
  copy();
  EXPECT_EQ(observe({7, {true, 5, 100}}), 0);
  EXPECT_FALSE(hasher.computed);
  EXPECT_EQ(context.peek(100).block_num, 7U);
}

TEST_F(ObserveTest, AnUnfinishedAtomicLetsTheOldWriteShow) {
  Event& a = older(EventType::Atomic, 10, BlockType::Atomic, 9);
  a.embed = {true, 10, 100};
  a.segment = {1, 4, 0};
  older(EventType::Write, 5, BlockType::Normal, 7).embed = {true, 5, 100};
  copy();
  EXPECT_EQ(observe({7, {true, 5, 100}}), 0);
  EXPECT_FALSE(hasher.computed);
  EXPECT_EQ(context.peek(100).block_type, BlockType::Normal);
  EXPECT_EQ(context.peek(100).block_num, 7U);
  EXPECT_EQ(observe({9, {true, 10, 100}}), 0);
  EXPECT_EQ(context.peek(100).block_type, BlockType::Atomic);
  EXPECT_EQ(context.peek(100).block_num, 9U);
}

TEST_F(ObserveTest, AFinishedWriteHidesWhatLiesBelow) {
  older(EventType::Write, 10, BlockType::Normal, 9).embed = {true, 10, 100};
  older(EventType::Write, 5, BlockType::Normal, 7).embed = {true, 5, 100};
  copy();
  EXPECT_EQ(observe({7, {true, 5, 100}}), -1003);
  EXPECT_TRUE(hasher.computed);
  EXPECT_EQ(context.peek(100).block_num, 9U) << "nothing observed: the newest settled event";
}

TEST_F(ObserveTest, AnUnfinishedAtomicOverNothingKnownIsNotCompared) {
  older(EventType::Atomic, 10, BlockType::Atomic, 9).embed = {true, 10, 100};
  copy();
  EXPECT_EQ(observe(strange), -1003);
  const PeekResult r = context.peek(100);
  EXPECT_EQ(r.status, -1003);
  EXPECT_EQ(r.block_type, BlockType::Unknown);
}

TEST_F(ObserveTest, AHashExplainsWhatTheStampDoesNot) {
  older(EventType::Atomic, 3, BlockType::Atomic, 9).embed = {true, 3, 50};
  older(EventType::Hash, 2, BlockType::Hash, 0x80001).hash = blockHashValue;
  copy(50);
  EXPECT_EQ(observe(strange, 50), 0);
  EXPECT_TRUE(hasher.computed);
  EXPECT_EQ(context.peek(50).block_type, BlockType::Hash);
  EXPECT_EQ(context.peek(50).hash, blockHashValue);
}

TEST_F(ObserveTest, WhatAHashExplainsWasObserved) {
  older(EventType::Atomic, 3, BlockType::Atomic, 9).embed = {true, 3, 50};
  older(EventType::Hash, 2, BlockType::Hash, 0x80001).hash = blockHashValue;
  copy(50);
  EXPECT_EQ(observe({9, {true, 3, 50}}, 50), 0);
  EXPECT_EQ(observe(strange, 50), 0);
  EXPECT_EQ(context.peek(50).block_type, BlockType::Hash) << "the later observation counts";
  const std::string history = context.getHistory(50);
  EXPECT_NE(history.find("653fcc6ee4f45deb  *observed*\n"), std::string::npos) << history;
  EXPECT_EQ(history.find("*observed*"), history.rfind("*observed*")) << history;
}

TEST_F(ObserveTest, TheNewStampedBlockNeedsNoHash) {
  older(EventType::Atomic, 3, BlockType::Atomic, 9).embed = {true, 3, 50};
  older(EventType::Hash, 2, BlockType::Hash, 0x80001).hash = blockHashValue;
  copy(50);
  EXPECT_EQ(observe({9, {true, 3, 50}}, 50), 0);
  EXPECT_FALSE(hasher.computed);
  EXPECT_EQ(context.peek(50).block_type, BlockType::Atomic);
  EXPECT_EQ(context.peek(50).block_num, 9U);
}

TEST_F(ObserveTest, OtherDataAreExplainedByNothing) {
  older(EventType::Atomic, 3, BlockType::Atomic, 9).embed = {true, 3, 50};
  older(EventType::Hash, 2, BlockType::Hash, 0x80001).hash = blockHashValue;
  copy(50);
  block[511] = 1;
  EXPECT_EQ(observe(strange, 50), -1003);
  EXPECT_EQ(context.peek(50).block_type, BlockType::Hash);
  EXPECT_EQ(context.getHistory(50).find("*observed*"), std::string::npos);
}

TEST_F(ObserveTest, AHashBelowASettledEventIsOutOfReach) {
  older(EventType::Write, 5, BlockType::Normal, 7);
  older(EventType::Hash, 2, BlockType::Hash, 0x80001).hash = blockHashValue;
  copy();
  EXPECT_EQ(observe(strange), -1003);
}

TEST_F(ObserveTest, AHashBelowSeveralUnfinishedAtomicsIsInReach) {
  older(EventType::Atomic, 5, BlockType::Atomic, 7);
  older(EventType::Atomic, 4, BlockType::Atomic, 8);
  older(EventType::Hash, 2, BlockType::Hash, 0x80001).hash = blockHashValue;
  copy();
  EXPECT_EQ(observe(strange), 0);
  EXPECT_EQ(context.peek(100).block_type, BlockType::Hash);
}

TEST_F(ObserveTest, TheStampIsAskedBeforeAnyHash) {
  // The head's hash would match, too; the stamp of the older event decides.
  older(EventType::Atomic, 5, BlockType::Atomic, 7).hash = blockHashValue;
  older(EventType::Write, 4, BlockType::Normal, 8);
  copy();
  EXPECT_EQ(observe({8, {}}), 0);
  EXPECT_EQ(context.peek(100).block_num, 8U);
  EXPECT_FALSE(hasher.computed);
}

TEST_F(ObserveTest, AMarkerEndsTheSearchAndInvalidatesTheAnswer) {
  older(EventType::InvalidateMarker, 0, BlockType::Unknown, 0x80001);
  older(EventType::Write, 5, BlockType::Normal, 7).embed = {true, 5, 100};
  copy();
  EXPECT_EQ(observe({7, {true, 5, 100}}), -1003);
  const PeekResult r = context.peek(100);
  EXPECT_EQ(r.status, 0);
  EXPECT_EQ(r.block_num, 7U);
  EXPECT_TRUE(r.invalidated);
}

TEST_F(ObserveTest, PeekWithoutAnObservationLooksThroughAtomicsAndMarkers) {
  older(EventType::Atomic, 10, BlockType::Atomic, 9);
  older(EventType::InvalidateMarker, 0, BlockType::Unknown, 0x80001);
  older(EventType::Write, 5, BlockType::Normal, 7);
  older(EventType::Write, 4, BlockType::Normal, 6);
  copy();
  const PeekResult r = context.peek(100);
  EXPECT_EQ(r.status, 0);
  EXPECT_EQ(r.block_num, 7U);
  EXPECT_TRUE(r.invalidated);
}

TEST_F(ObserveTest, AFailedObservationKeepsAnEarlierOne) {
  older(EventType::Atomic, 10, BlockType::Atomic, 9);
  older(EventType::Write, 5, BlockType::Normal, 7);
  copy();
  EXPECT_EQ(observe({9, {}}), 0);
  EXPECT_EQ(observe(strange), -1003);
  EXPECT_EQ(context.peek(100).block_num, 9U);
}

TEST(ClearedContext, UsesItsMemoryAgain) {
  Event older;
  Event newest;
  newest.next = &older;
  AtomicContext context;
  const auto fill = [&] {
    for (uint64_t lba = 0; lba < 200; ++lba) {
      context.copyHistory(lba, &newest);
    }
  };
  fill();
  const uint64_t before = modeltest::allocations();
  context.clear();
  EXPECT_TRUE(context.empty());
  EXPECT_EQ(context.peek(7).status, -1004);
  fill();
  EXPECT_EQ(context.size(), 200U);
  EXPECT_EQ(modeltest::allocations(), before);
}

TEST(ClearedContext, LeavesItsCopiesAsTheyAre) {
  const Event event;
  AtomicContext first;
  first.copyHistory(7, &event);
  AtomicContext second = first;
  second.clear();
  EXPECT_TRUE(second.empty());
  EXPECT_EQ(first.size(), 1U);
  EXPECT_EQ(first.peek(7).status, 0);
  AtomicContext nothingYet;
  nothingYet.clear();
  EXPECT_TRUE(nothingYet.empty());
}

TEST_F(ObserveTest, NodesAreSharedByCopiesOfTheContext) {
  older(EventType::Atomic, 10, BlockType::Atomic, 9);
  older(EventType::Write, 5, BlockType::Normal, 7);
  copy();
  const AtomicContext second = context;
  EXPECT_EQ(observe({9, {}}), 0);
  EXPECT_EQ(second.peek(100).block_num, 9U);
}

}  // namespace
}  // namespace vdl
