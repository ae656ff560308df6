#include "Event.h"

#include <gtest/gtest.h>

#include <type_traits>

#include "LBARecord.h"

namespace vdl {
namespace {

Event event(EventType type, uint64_t cmdId, BlockType blockType, BlockNum block) {
  Event made;
  made.type = type;
  made.cmd_id = cmdId;
  made.block_type = blockType;
  made.block_num = block;
  return made;
}

TEST(Event, HasTheSizeThatOneMebibyteOfPoolIsCountedWith) {
  EXPECT_EQ(sizeof(Event), 80U);
  EXPECT_EQ((std::size_t{1} << 20) / sizeof(Event), 13107U);
}

TEST(Event, WaitReadHasTheSizeThatItsPoolIsCountedWith) {
  EXPECT_EQ(sizeof(WaitRead), 24U);
  EXPECT_EQ((std::size_t{1} << 20) / sizeof(WaitRead), 43690U);
}

TEST(Event, EnumeratorsHaveTheirNumbersAndWidths) {
  static_assert(std::is_same_v<std::underlying_type_t<EventType>, uint8_t>);
  static_assert(std::is_same_v<std::underlying_type_t<BlockType>, uint32_t>);
  static_assert(std::is_same_v<BlockNum, uint32_t>);
  EXPECT_EQ(static_cast<int>(EventType::None), 0);
  EXPECT_EQ(static_cast<int>(EventType::Write), 1);
  EXPECT_EQ(static_cast<int>(EventType::Atomic), 2);
  EXPECT_EQ(static_cast<int>(EventType::Hash), 3);
  EXPECT_EQ(static_cast<int>(EventType::Invalidate), 4);
  EXPECT_EQ(static_cast<int>(EventType::InvalidateMarker), 5);
  EXPECT_EQ(static_cast<int>(BlockType::Unknown), 0);
  EXPECT_EQ(static_cast<int>(BlockType::Normal), 1);
  EXPECT_EQ(static_cast<int>(BlockType::Atomic), 2);
  EXPECT_EQ(static_cast<int>(BlockType::Hash), 3);
  EXPECT_EQ(block_num::bucketLimit, 0x80000U);
  EXPECT_EQ(block_num::unknown, 0x80001U);
  EXPECT_EQ(block_num::zero, 0xFF0000U);
}

TEST(Event, DefaultEventKnowsNothing) {
  const Event e;
  EXPECT_EQ(e.type, EventType::None);
  EXPECT_EQ(e.cmd_id, 0U);
  EXPECT_EQ(e.block_type, BlockType::Unknown);
  EXPECT_EQ(e.block_num, 0x80001U);
  EXPECT_EQ(e.hash, 0U);
  EXPECT_FALSE(e.embed.valid);
  EXPECT_EQ(e.embed.cmd_id, 0U);
  EXPECT_EQ(e.embed.lba, 0U);
  EXPECT_EQ(e.segment.offset, 0U);
  EXPECT_EQ(e.segment.length, 0U);
  EXPECT_EQ(e.segment.segment, 0U);
  EXPECT_EQ(e.next, nullptr);
}

TEST(Event, SegmentFieldsStandInTheOrderOffsetLengthSegment) {
  const AtomicSegment s{1, 2, 3};
  EXPECT_EQ(s.offset, 1U);
  EXPECT_EQ(s.length, 2U);
  EXPECT_EQ(s.segment, 3U);
}

TEST(Event, EmbedFieldsStandInTheOrderValidIdLba) {
  const EmbedData e{true, 2, 3};
  EXPECT_TRUE(e.valid);
  EXPECT_EQ(e.cmd_id, 2U);
  EXPECT_EQ(e.lba, 3U);
}

TEST(Event, FreshRecordObservationAndResultAreEmpty) {
  const LBARecord record;
  EXPECT_EQ(record.ref_count, 0U);
  EXPECT_EQ(record.events, nullptr);
  EXPECT_EQ(record.wait_read, nullptr);
  const ObserveData observed;
  EXPECT_EQ(observed.block_num, 0x80001U);
  EXPECT_FALSE(observed.embed.valid);
  const PeekResult result;
  EXPECT_EQ(result.status, -1003);
  EXPECT_EQ(result.block_type, BlockType::Unknown);
  EXPECT_EQ(result.block_num, 0x80001U);
  EXPECT_EQ(result.hash, 0U);
  EXPECT_FALSE(result.embed.valid);
  EXPECT_FALSE(result.invalidated);
}

TEST(Event, IsKnownForNormalAndHashOnly) {
  Event e;
  for (const uint32_t type : {1U, 3U}) {
    e.block_type = static_cast<BlockType>(type);
    EXPECT_TRUE(e.isKnown()) << type;
  }
  for (const uint32_t type : {0U, 2U, 4U, 0xFFFFFFFFU}) {
    e.block_type = static_cast<BlockType>(type);
    EXPECT_FALSE(e.isKnown()) << type;
  }
}

TEST(Event, IsTransparentForAtomicContentOnly) {
  Event e;
  e.block_type = BlockType::Atomic;
  EXPECT_TRUE(e.isTransparent());
  for (const uint32_t type : {0U, 1U, 3U, 4U}) {
    e.block_type = static_cast<BlockType>(type);
    EXPECT_FALSE(e.isTransparent()) << type;
  }
}

TEST(Event, TransparencyIsAMatterOfTheContentNotOfTheEventsType) {
  Event finishedAtomic = event(EventType::Atomic, 1, BlockType::Normal, 5);
  EXPECT_FALSE(finishedAtomic.isTransparent());
  EXPECT_TRUE(finishedAtomic.isKnown());
}

/// marker -> atomic (id 2, bucket 6, unfinished) -> write (id 1, bucket 5)
class PeekTest : public testing::Test {
 protected:
  PeekTest() {
    atomic.next = &write;
    marker.next = &atomic;
    write.embed = {true, 1, 0x64};
    atomic.hash = 0x77;
  }

  Event write = event(EventType::Write, 1, BlockType::Normal, 5);
  Event atomic = event(EventType::Atomic, 2, BlockType::Atomic, 6);
  Event marker = event(EventType::InvalidateMarker, 0, BlockType::Unknown, 0x80001);
};

TEST_F(PeekTest, StopsAtTheNewestEventBelowTheMarkers) {
  const PeekResult r = Event::peek(&marker, nullptr, true);
  EXPECT_EQ(r.status, 0);
  EXPECT_EQ(r.block_type, BlockType::Atomic);
  EXPECT_EQ(r.block_num, 6U);
  EXPECT_EQ(r.hash, 0x77U);
  EXPECT_FALSE(r.embed.valid);
  EXPECT_TRUE(r.invalidated);
}

TEST_F(PeekTest, LooksThroughATransparentEvent) {
  const PeekResult r = Event::peek(&marker, nullptr, false);
  EXPECT_EQ(r.status, 0);
  EXPECT_EQ(r.block_type, BlockType::Normal);
  EXPECT_EQ(r.block_num, 5U);
  EXPECT_EQ(r.hash, 0U);
  EXPECT_TRUE(r.embed.valid);
  EXPECT_EQ(r.embed.cmd_id, 1U);
  EXPECT_EQ(r.embed.lba, 0x64U);
  EXPECT_TRUE(r.invalidated);
}

TEST_F(PeekTest, FindsTheStopWhateverTheFlag) {
  for (const bool flag : {false, true}) {
    const PeekResult r = Event::peek(&marker, &atomic, flag);
    EXPECT_EQ(r.status, 0);
    EXPECT_EQ(r.block_num, 6U);
    EXPECT_TRUE(r.invalidated);
  }
}

TEST_F(PeekTest, AStopBelowIsFoundPastOtherEvents) {
  const PeekResult r = Event::peek(&marker, &write, true);
  EXPECT_EQ(r.status, 0);
  EXPECT_EQ(r.block_num, 5U);
  EXPECT_TRUE(r.invalidated);
}

TEST_F(PeekTest, ATransparentEventLeavesNoMarkBehind) {
  const PeekResult r = Event::peek(&atomic, nullptr, false);
  EXPECT_EQ(r.block_num, 5U);
  EXPECT_FALSE(r.invalidated);
}

TEST_F(PeekTest, AStopThatIsNotInTheListIsNotFound) {
  const Event stranger = event(EventType::Write, 9, BlockType::Normal, 9);
  const PeekResult r = Event::peek(&marker, &stranger, true);
  EXPECT_EQ(r.status, -1003);
  EXPECT_EQ(r.block_type, BlockType::Unknown);
  EXPECT_EQ(r.block_num, 0x80001U);
  EXPECT_TRUE(r.invalidated);
}

TEST_F(PeekTest, AMarkerIsNeverFoundEvenAsTheStop) {
  const PeekResult r = Event::peek(&marker, &marker, true);
  EXPECT_EQ(r.status, -1003);
  EXPECT_TRUE(r.invalidated);
}

TEST_F(PeekTest, AnEmptyListHasNothing) {
  for (const bool flag : {false, true}) {
    const PeekResult r = Event::peek(nullptr, nullptr, flag);
    EXPECT_EQ(r.status, -1003);
    EXPECT_FALSE(r.invalidated);
    EXPECT_EQ(Event::peek(nullptr, &write, flag).status, -1003);
  }
}

TEST_F(PeekTest, AListOfMarkersOnlyIsNotFoundButInvalidated) {
  marker.next = nullptr;
  for (const bool flag : {false, true}) {
    const PeekResult r = Event::peek(&marker, nullptr, flag);
    EXPECT_EQ(r.status, -1003);
    EXPECT_EQ(r.block_num, 0x80001U);
    EXPECT_TRUE(r.invalidated);
  }
}

TEST_F(PeekTest, UnfinishedAtomicsOnlyAreNotFoundWhenLookedThrough) {
  Event older = event(EventType::Atomic, 1, BlockType::Atomic, 4);
  atomic.next = &older;
  EXPECT_EQ(Event::peek(&marker, nullptr, false).status, -1003);
  EXPECT_EQ(Event::peek(&marker, nullptr, true).status, 0);
}

TEST_F(PeekTest, AMarkerBelowTheEventFoundDoesNotCount) {
  Event older = event(EventType::InvalidateMarker, 0, BlockType::Unknown, 0x80001);
  write.next = &older;
  EXPECT_FALSE(Event::peek(&write, nullptr, true).invalidated);
}

TEST_F(PeekTest, AnInvalidateEventIsFoundLikeAnyOther) {
  Event invalidate = event(EventType::Invalidate, 0, BlockType::Unknown, 0x80001);
  invalidate.next = &write;
  for (const bool flag : {false, true}) {
    const PeekResult r = Event::peek(&invalidate, nullptr, flag);
    EXPECT_EQ(r.status, 0);
    EXPECT_EQ(r.block_type, BlockType::Unknown);
    EXPECT_FALSE(r.invalidated);
  }
}

TEST(ObservationEquality, ComparesBucketsWhenNothingIsEmbedded) {
  Event e = event(EventType::Write, 7, BlockType::Normal, 5);
  ObserveData o;
  o.block_num = 5;
  // Ids and LBAs that are not embedded take no part.
  e.embed = {false, 1, 2};
  o.embed = {false, 3, 4};
  EXPECT_TRUE(o == e);
  EXPECT_TRUE(e == o);
  o.block_num = 6;
  EXPECT_FALSE(o == e);
  EXPECT_FALSE(e == o);
}

TEST(ObservationEquality, NeedsBothIdAndLbaWhenEmbedded) {
  Event e = event(EventType::Write, 7, BlockType::Normal, 5);
  e.embed = {true, 7, 0x64};
  ObserveData o{5, {true, 7, 0x64}};
  EXPECT_TRUE(o == e);
  EXPECT_TRUE(e == o);
  o.embed = {true, 7, 0x65};
  EXPECT_FALSE(o == e);
  o.embed = {true, 8, 0x64};
  EXPECT_FALSE(e == o);
  o.embed = {true, 0x64, 7};
  EXPECT_FALSE(o == e);
}

TEST(ObservationEquality, NeedsTheSameKindOfStamp) {
  Event e = event(EventType::Write, 7, BlockType::Normal, 5);
  e.embed = {false, 0, 0};
  EXPECT_FALSE((ObserveData{5, {true, 0, 0}} == e));
  e.embed = {true, 0, 0};
  EXPECT_FALSE((ObserveData{5, {false, 0, 0}} == e));
}

TEST(ObservationEquality, UnknownContentIsNoRealBucket) {
  const Event e = event(EventType::Write, 7, BlockType::Normal, 0x80001);
  for (const BlockNum bucket : {0U, 1U, 0x7FFFFU, 0xFF0000U}) {
    EXPECT_FALSE((ObserveData{bucket, {}} == e)) << bucket;
  }
}

TEST(ObservationEquality, AZeroBlockMatchesATrim) {
  const Event e = event(EventType::Write, 7, BlockType::Normal, 0xFF0000);
  EXPECT_TRUE((ObserveData{0xFF0000, {}} == e));
  // As read from a real block, zeros look stamped, and so do not match.
  EXPECT_FALSE((ObserveData{0, {true, 0, 0}} == e));
}

TEST(ObservationEquality, IgnoresTheHash) {
  Event e = event(EventType::Hash, 7, BlockType::Hash, 5);
  e.hash = 0x1234;
  EXPECT_TRUE((ObserveData{5, {}} == e));
}

}  // namespace
}  // namespace vdl
