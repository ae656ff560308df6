#include "AtomicHash.h"

#include <gtest/gtest.h>

#include "support_model/AtomicHashFixture.h"

namespace vdl {
namespace {

using AtomicHashTest = modeltest::AtomicHashFixture;

TEST_F(AtomicHashTest, StartsEmpty) {
  EXPECT_TRUE(table.records().empty());
  EXPECT_EQ(table.references(), 0U);
  const PeekResult r = table.peek(1);
  EXPECT_EQ(r.status, -1003);
  EXPECT_EQ(r.block_num, 0x80001U);
  EXPECT_EQ(errors.take(), "") << "a peek is no refusal";
}

TEST_F(AtomicHashTest, WriteIssuedKeepsWhatWasWritten) {
  EXPECT_EQ(table.writeIssued(3, 0x1F, 9, {true, 3, 0x1F}), 0);
  const Event& e = event(0x1F, 0);
  EXPECT_EQ(e.type, EventType::Write);
  EXPECT_EQ(e.cmd_id, 3U);
  EXPECT_EQ(e.block_type, BlockType::Normal);
  EXPECT_EQ(e.block_num, 9U);
  EXPECT_EQ(e.hash, 0U);
  EXPECT_TRUE(e.embed.valid);
  EXPECT_EQ(e.embed.cmd_id, 3U);
  EXPECT_EQ(e.embed.lba, 0x1FU);
  EXPECT_EQ(e.segment.length, 0U);
  EXPECT_EQ(references(0x1F), 1U);
  EXPECT_EQ(table.references(), 1U);
}

TEST_F(AtomicHashTest, AtomicWriteIssuedKeepsItsSegmentAndIsTransparent) {
  EXPECT_EQ(table.atomicWriteIssued(4, 0x20, 8, {true, 4, 0x20}, {1, 4, 2}), 0);
  const Event& e = event(0x20, 0);
  EXPECT_EQ(e.type, EventType::Atomic);
  EXPECT_EQ(e.cmd_id, 4U);
  EXPECT_EQ(e.block_type, BlockType::Atomic);
  EXPECT_EQ(e.block_num, 8U);
  EXPECT_EQ(e.hash, 0U);
  EXPECT_EQ(e.embed.lba, 0x20U);
  EXPECT_EQ(e.segment.offset, 1U);
  EXPECT_EQ(e.segment.length, 4U);
  EXPECT_EQ(e.segment.segment, 2U);
  EXPECT_TRUE(e.isTransparent());
  EXPECT_EQ(references(0x20), 1U);
}

TEST_F(AtomicHashTest, SaveHashKeepsTheHashAndTakesAReferenceOnlyIfAsked) {
  EXPECT_EQ(table.saveHash(2, 50, 0x653fcc6ee4f45deb, true), 0);
  const Event& e = event(50, 0);
  EXPECT_EQ(e.type, EventType::Hash);
  EXPECT_EQ(e.cmd_id, 2U);
  EXPECT_EQ(e.block_type, BlockType::Hash);
  EXPECT_EQ(e.block_num, 0x80001U);
  EXPECT_EQ(e.hash, 0x653fcc6ee4f45debU);
  EXPECT_FALSE(e.embed.valid);
  EXPECT_EQ(references(50), 1U);
  EXPECT_EQ(table.saveHash(3, 51, 1, false), 0);
  EXPECT_EQ(references(51), 0U);
  EXPECT_EQ(table.references(), 1U);
}

TEST_F(AtomicHashTest, EventsStandInTheOrderOfTheirIds) {
  table.writeIssued(10, 1, 0, {});
  table.writeIssued(20, 1, 0, {});
  table.writeIssued(15, 1, 0, {});
  EXPECT_EQ(ids(1), (Ids{20, 15, 10}));
  table.saveHash(20, 1, 0x77, false);
  EXPECT_EQ(ids(1), (Ids{20, 20, 15, 10}));
  EXPECT_EQ(event(1, 0).type, EventType::Write);
  EXPECT_EQ(event(1, 1).type, EventType::Hash);
  table.invalidate(1, 1, AtomicHash::InvalidateReplace);
  EXPECT_EQ(ids(1), (Ids{0, 20, 20, 15, 10}));
  table.saveHash(12, 1, 0x77, false);
  EXPECT_EQ(ids(1), (Ids{12, 0, 20, 20, 15, 10}));
  table.saveHash(30, 1, 0x77, false);
  EXPECT_EQ(ids(1), (Ids{30, 12, 0, 20, 20, 15, 10}));
  table.saveHash(25, 1, 0x77, false);
  EXPECT_EQ(ids(1), (Ids{30, 25, 12, 0, 20, 20, 15, 10}));
}

TEST_F(AtomicHashTest, AnIdOfZeroAtTheHeadLetsAnOlderHashOnTop) {
  table.writeIssued(5, 1, 0, {});
  table.saveHash(3, 1, 1, false);
  EXPECT_EQ(ids(1), (Ids{5, 3}));
  table.invalidate(1, 1, AtomicHash::InvalidateReplace);
  EXPECT_EQ(ids(1), (Ids{0, 5, 3}));
  table.saveHash(4, 1, 1, false);
  EXPECT_EQ(ids(1), (Ids{4, 0, 5, 3}));
}

TEST_F(AtomicHashTest, AWalkForThePlaceStopsAtAnIdOfZero) {
  table.writeIssued(10, 1, 0, {});
  table.invalidate(1, 1, AtomicHash::InvalidateReplace);
  table.writeIssued(20, 1, 0, {});
  table.saveHash(15, 1, 1, false);
  EXPECT_EQ(ids(1), (Ids{20, 15, 0, 10}));
  table.saveHash(5, 1, 1, false);
  EXPECT_EQ(ids(1), (Ids{20, 15, 5, 0, 10})) << "older than 10, but the walk does not get past 0";
}

TEST_F(AtomicHashTest, InsertEventIgnoresNothing) {
  LBARecord r;
  Event e;
  table.insertEvent(nullptr, &e);
  table.insertEvent(&r, nullptr);
  EXPECT_EQ(r.events, nullptr);
  e.next = &e;
  table.insertEvent(&r, &e);
  EXPECT_EQ(r.events, &e);
  EXPECT_EQ(e.next, nullptr) << "the only event has no successor";
}

TEST_F(AtomicHashTest, LifeOfAWrittenBlock) {
  table.writeIssued(1, 0x64, 5, {});
  EXPECT_EQ(table.readIssued(2, 0x64, true), 0);
  EXPECT_EQ(references(0x64), 0U);
  ASSERT_NE(record(0x64)->wait_read, nullptr);
  EXPECT_EQ(record(0x64)->wait_read->next, nullptr);
  const PeekResult r = table.readFinished(2, 0x64, false);
  EXPECT_EQ(r.status, 0);
  EXPECT_EQ(r.block_num, 5U);
  EXPECT_EQ(record(0x64), nullptr);
  EXPECT_EQ(table.peek(0x64).status, -1003);
  EXPECT_EQ(table.references(), 0U);
}

TEST_F(AtomicHashTest, ReadOfAnUntouchedBlockLeavesAnUnknownStateUntilItFinishes) {
  EXPECT_EQ(table.readIssued(7, 0x64, false), 0);
  ASSERT_NE(record(0x64), nullptr);
  EXPECT_EQ(references(0x64), 0U);
  EXPECT_EQ(ids(0x64), (Ids{0}));
  EXPECT_EQ(event(0x64, 0).type, EventType::None);
  EXPECT_EQ(event(0x64, 0).block_type, BlockType::Unknown);
  EXPECT_FALSE(known(0x64));
  const PeekResult r = table.readFinished(7, 0x64, false);
  EXPECT_EQ(r.status, 0);
  EXPECT_EQ(r.block_type, BlockType::Unknown);
  EXPECT_EQ(r.block_num, 0x80001U);
  EXPECT_EQ(record(0x64), nullptr);
}

TEST_F(AtomicHashTest, AReadKeptLeavesAReferenceForTheNextOne) {
  table.readIssued(7, 0x64, false);
  table.readFinished(7, 0x64, true);
  EXPECT_EQ(references(0x64), 1U);
  EXPECT_EQ(table.references(), 1U);
  EXPECT_EQ(table.readIssued(8, 0x64, true), 0);
  EXPECT_EQ(references(0x64), 0U);
}

TEST_F(AtomicHashTest, AReadWithoutExpectationPaysNothing) {
  table.writeIssued(1, 0x64, 5, {});
  EXPECT_EQ(table.readIssued(2, 0x64, false), 0);
  EXPECT_EQ(references(0x64), 1U);
  EXPECT_EQ(ids(0x64), (Ids{1})) << "no unknown event on a block with a record";
  table.readFinished(2, 0x64, false);
  EXPECT_EQ(references(0x64), 1U);
}

TEST_F(AtomicHashTest, ReadsWaitNewestFirstAndFinishInAnyOrder) {
  table.writeIssued(1, 9, 5, {});
  table.readIssued(2, 9, false);
  table.readIssued(3, 9, false);
  table.readIssued(4, 9, false);
  const WaitRead* w = record(9)->wait_read;
  EXPECT_EQ(w->cmd_id, 4U);
  EXPECT_EQ(w->next->cmd_id, 3U);
  EXPECT_EQ(w->next->next->cmd_id, 2U);
  EXPECT_EQ(table.readFinished(3, 9, false).status, 0);
  EXPECT_EQ(record(9)->wait_read->cmd_id, 4U);
  EXPECT_EQ(record(9)->wait_read->next->cmd_id, 2U);
  EXPECT_EQ(table.readFinished(3, 9, false).status, -1003) << "finished already";
  EXPECT_EQ(table.readFinished(4, 9, false).status, 0);
  EXPECT_EQ(table.readFinished(2, 9, false).status, 0);
  EXPECT_EQ(record(9)->wait_read, nullptr);
}

TEST_F(AtomicHashTest, OfTwoWaitsWithOneIdTheNewerOneFinishes) {
  table.writeIssued(1, 9, 5, {});
  table.readIssued(2, 9, false);
  table.writeIssued(3, 9, 6, {});
  table.readIssued(2, 9, false);
  EXPECT_EQ(table.readFinished(2, 9, false).block_num, 6U);
  EXPECT_EQ(table.readFinished(2, 9, false).block_num, 5U);
}

TEST_F(AtomicHashTest, AReadSeesTheStateOfItsIssue) {
  table.writeIssued(5, 0x64, 5, {});
  table.readIssued(10, 0x64, false);
  table.writeIssued(11, 0x64, 6, {});
  const AtomicContext context = table.getContext(0x64, 0x64, 10);
  EXPECT_EQ(context.size(), 1U);
  EXPECT_EQ(context.getHistory(0x64).find("\nwrite       11 "), std::string::npos);
  EXPECT_NE(context.getHistory(0x64).find("\nwrite       5 "), std::string::npos);
  EXPECT_EQ(table.peek(0x64).block_num, 6U);
  EXPECT_EQ(table.readFinished(10, 0x64, false).block_num, 5U);
}

TEST_F(AtomicHashTest, AnOlderHashThatArrivesLateIsSeenByTheWaitingRead) {
  table.writeIssued(10, 1, 4, {});
  EXPECT_EQ(table.readIssued(12, 1, true), 0);
  table.saveHash(5, 1, 0x77, false);
  table.writeIssued(13, 1, 6, {});
  const std::string history = table.getContext(1, 1, 12).getHistory(1);
  EXPECT_NE(history.find("\nwrite       10 "), std::string::npos);
  EXPECT_NE(history.find("\nhash        5 "), std::string::npos);
  EXPECT_EQ(history.find("\nwrite       13 "), std::string::npos);
  EXPECT_EQ(table.readFinished(12, 1, false).block_num, 4U);
  EXPECT_EQ(references(1), 1U);
}

TEST_F(AtomicHashTest, TheAwaitedEventIsTheNewestOneOfTheReadsIssue) {
  table.writeIssued(1, 9, 5, {});
  table.readIssued(2, 9, true);
  table.writeIssued(3, 9, 6, {});
  ASSERT_NE(table.awaitedEvent(2, 9), nullptr);
  EXPECT_EQ(table.awaitedEvent(2, 9)->cmd_id, 1U);
  EXPECT_EQ(table.awaitedEvent(3, 9), nullptr) << "only reads wait";
  EXPECT_EQ(table.awaitedEvent(2, 10), nullptr) << "no record";
  table.readFinished(2, 9, false);
  EXPECT_EQ(table.awaitedEvent(2, 9), nullptr) << "it waits no more";
  EXPECT_EQ(errors.take(), "") << "asking is no refusal";
}

TEST_F(AtomicHashTest, AMarkerBeforeTheReadInvalidatesWhatItSees) {
  table.writeIssued(1, 9, 5, {});
  table.invalidate(9, 9, AtomicHash::InvalidateKeepPrior);
  table.readIssued(2, 9, false);
  const PeekResult r = table.readFinished(2, 9, false);
  EXPECT_EQ(r.status, 0);
  EXPECT_EQ(r.block_num, 5U);
  EXPECT_TRUE(r.invalidated);
}

TEST_F(AtomicHashTest, AMarkerAfterTheReadDoesNotConcernIt) {
  table.writeIssued(1, 9, 5, {});
  table.readIssued(2, 9, false);
  table.invalidate(9, 9, AtomicHash::InvalidateKeepPrior);
  EXPECT_TRUE(table.peek(9).invalidated);
  EXPECT_FALSE(table.readFinished(2, 9, false).invalidated);
}

TEST_F(AtomicHashTest, ReadSkipGivesOneReferenceBack) {
  table.writeIssued(1, 9, 5, {});
  table.writeIssued(2, 9, 6, {});
  EXPECT_EQ(table.readSkip(9), 0);
  EXPECT_EQ(references(9), 1U);
  EXPECT_EQ(table.references(), 1U);
  EXPECT_EQ(table.readSkip(9), 0);
  EXPECT_EQ(record(9), nullptr);
  EXPECT_EQ(table.readSkip(9), -1003);
}

TEST_F(AtomicHashTest, ReadSkipWithoutReferencesLeavesTheRecord) {
  table.saveHash(1, 9, 0x77, false);
  EXPECT_EQ(table.readSkip(9), 0);
  EXPECT_NE(record(9), nullptr);
  EXPECT_EQ(errors.take(), "");
}

TEST_F(AtomicHashTest, DropHashGivesTheReferenceBackAndKeepsTheEvent) {
  table.saveHash(2, 50, 0x77, true);
  table.atomicWriteIssued(3, 50, 9, {true, 3, 50}, {0, 1, 0});
  EXPECT_EQ(references(50), 2U);
  EXPECT_EQ(table.dropHash(2, 50), 0);
  EXPECT_EQ(references(50), 1U);
  EXPECT_EQ(ids(50), (Ids{3, 2}));
  EXPECT_EQ(event(50, 1).type, EventType::Hash);
  table.writeFinished(3, 50);
  EXPECT_EQ(table.peek(50).block_type, BlockType::Normal);
  EXPECT_EQ(table.dropHash(3, 50), 0) << "an event of any type will do";
  EXPECT_EQ(record(50), nullptr);
}

TEST_F(AtomicHashTest, WriteFinishedSettlesAnAtomicWriteAndNothingElse) {
  table.writeIssued(1, 9, 5, {});
  table.writeFinished(1, 9);
  EXPECT_EQ(event(9, 0).type, EventType::Write);
  EXPECT_EQ(event(9, 0).block_type, BlockType::Normal);
  EXPECT_EQ(event(9, 0).block_num, 5U);
  table.atomicWriteIssued(2, 9, 6, {}, {0, 1, 0});
  table.atomicWriteIssued(3, 9, 7, {}, {0, 1, 0});
  table.writeFinished(99, 9);
  EXPECT_EQ(event(9, 0).block_type, BlockType::Atomic);
  table.writeFinished(2, 9);
  EXPECT_EQ(event(9, 0).block_type, BlockType::Atomic) << "the other atomic write";
  EXPECT_EQ(event(9, 1).block_type, BlockType::Normal);
  EXPECT_EQ(event(9, 1).type, EventType::Atomic);
  EXPECT_EQ(references(9), 3U);
}

TEST_F(AtomicHashTest, AWriteWhoseBlocksAreForgottenFinishesBesideAnAtomicOne) {
  table.atomicWriteIssued(2, 9, 6, {}, {0, 1, 0});
  table.writeFinished(2, 10);
  table.writeFinished(2, BlockRun{10, 90});
  EXPECT_EQ(table.records().size(), 1U);
  EXPECT_EQ(event(9, 0).block_type, BlockType::Atomic);
}

TEST_F(AtomicHashTest, OnlyTheFirstEventOfTheIdIsSettled) {
  table.atomicWriteIssued(2, 9, 6, {}, {0, 1, 0});
  table.atomicWriteIssued(2, 9, 7, {}, {0, 1, 0});
  table.writeFinished(2, 9);
  EXPECT_EQ(event(9, 0).block_type, BlockType::Normal);
  EXPECT_EQ(event(9, 1).block_type, BlockType::Atomic);
  table.writeFinished(2, 9);
  EXPECT_EQ(event(9, 1).block_type, BlockType::Atomic) << "the first match ends the walk";
}

TEST_F(AtomicHashTest, AHardErrorMakesAWritesContentUnknownButSettled) {
  table.writeIssued(6, 9, 5, {true, 6, 9});
  table.hardWriteError(6, 9);
  EXPECT_EQ(event(9, 0).block_num, 0x80001U);
  EXPECT_TRUE(event(9, 0).embed.valid);
  EXPECT_EQ(event(9, 0).embed.cmd_id, 6U);
  EXPECT_TRUE(known(9));
}

TEST_F(AtomicHashTest, AHardErrorLeavesOtherEventsAlone) {
  table.atomicWriteIssued(6, 9, 5, {}, {0, 1, 0});
  table.hardWriteError(6, 9);
  EXPECT_EQ(event(9, 0).block_num, 5U);
  EXPECT_EQ(event(9, 0).block_type, BlockType::Atomic);
  table.writeIssued(7, 9, 6, {});
  table.hardWriteError(8, 9);
  EXPECT_EQ(event(9, 0).block_num, 6U);
}

TEST_F(AtomicHashTest, RangeIsKnownWhenEveryBlockIsAndTheOneBehindIsOnRecord) {
  for (uint64_t lba = 100; lba <= 103; ++lba) {
    table.writeIssued(6, lba, 5, {});
  }
  EXPECT_TRUE(table.isStateKnown(100, 103));
  EXPECT_FALSE(table.isStateKnown(100, 104)) << "no record of 104";
  EXPECT_TRUE(table.isStateKnown(100, 100));
  EXPECT_TRUE(table.isStateKnown(103, 100));
  EXPECT_FALSE(table.isStateKnown(104, 104));
  EXPECT_FALSE(table.isStateKnown(99, 100));
  table.hardWriteError(6, 101);
  EXPECT_EQ(table.peek(101).block_num, 0x80001U);
  EXPECT_TRUE(table.isStateKnown(100, 103));
  table.invalidate(102, 102, AtomicHash::InvalidateKeepPrior);
  EXPECT_FALSE(table.isStateKnown(100, 103));
  const PeekResult marked = table.peek(102);
  EXPECT_EQ(marked.status, 0);
  EXPECT_EQ(marked.block_num, 5U);
  EXPECT_TRUE(marked.invalidated);
  table.invalidate(101, 101, AtomicHash::InvalidateReplace);
  const PeekResult replaced = table.peek(101);
  EXPECT_EQ(replaced.status, 0);
  EXPECT_EQ(replaced.block_type, BlockType::Unknown);
  EXPECT_EQ(replaced.block_num, 0x80001U);
  EXPECT_FALSE(replaced.invalidated);
}

TEST_F(AtomicHashTest, TheBlockBehindARangeNeedsARecordButNoState) {
  table.writeIssued(1, 10, 5, {});
  table.writeIssued(1, 11, 6, {});
  EXPECT_FALSE(table.isStateKnown(10, 12));
  table.readIssued(2, 12, false);
  EXPECT_FALSE(known(12));
  EXPECT_TRUE(table.isStateKnown(10, 12));
}

TEST_F(AtomicHashTest, AGapInTheRangeIsUnknown) {
  table.writeIssued(1, 10, 5, {});
  table.writeIssued(1, 12, 6, {});
  EXPECT_FALSE(table.isStateKnown(10, 12));
}

TEST_F(AtomicHashTest, OneBlockIsKnownThroughUnfinishedAtomics) {
  table.atomicWriteIssued(3, 9, 6, {}, {0, 1, 0});
  EXPECT_FALSE(known(9)) << "nothing below";
  table.saveHash(2, 9, 0x77, false);
  EXPECT_TRUE(known(9));
  table.saveHash(2, 10, 0x77, false);
  EXPECT_TRUE(known(10));
  table.invalidate(9, 9, AtomicHash::InvalidateReplace);
  EXPECT_FALSE(known(9));
}

TEST_F(AtomicHashTest, InvalidateTouchesRecordsOnlyAndBothEnds) {
  table.writeIssued(1, 5, 50, {});
  table.writeIssued(1, 6, 60, {});
  table.writeIssued(1, 7, 70, {});
  table.invalidate(7, 5, AtomicHash::InvalidateReplace);
  table.invalidate(8, 1000, AtomicHash::InvalidateReplace);
  EXPECT_EQ(table.records().size(), 3U);
  EXPECT_EQ(ids(5), (Ids{1}));
  table.invalidate(5, 6, AtomicHash::InvalidateReplace);
  EXPECT_EQ(ids(5), (Ids{0, 1}));
  EXPECT_EQ(ids(6), (Ids{0, 1}));
  EXPECT_EQ(ids(7), (Ids{1}));
  EXPECT_EQ(event(5, 0).type, EventType::Invalidate);
  EXPECT_EQ(event(5, 0).block_type, BlockType::Unknown);
  EXPECT_EQ(event(5, 0).block_num, 0x80001U);
  EXPECT_EQ(table.references(), 3U);
}

TEST_F(AtomicHashTest, InvalidateReachesTheLastBlockThereIs) {
  table.writeIssued(1, ~uint64_t{0}, 5, {});
  table.invalidate(0, ~uint64_t{0}, AtomicHash::InvalidateReplace);
  EXPECT_EQ(ids(~uint64_t{0}), (Ids{0, 1}));
}

TEST_F(AtomicHashTest, KeepPriorMarksTheWholeRange) {
  for (uint64_t lba = 10; lba <= 12; ++lba) {
    table.writeIssued(lba, lba, static_cast<BlockNum>(lba), {});
  }
  table.invalidate(10, 12, AtomicHash::InvalidateKeepPrior);
  for (uint64_t lba = 10; lba <= 12; ++lba) {
    EXPECT_EQ(event(lba, 0).type, EventType::InvalidateMarker);
  }
  const PeekResult r = table.peek(12);
  EXPECT_EQ(r.status, 0);
  EXPECT_TRUE(r.invalidated);
  EXPECT_EQ(r.block_num, 12U);
  EXPECT_FALSE(table.isStateKnown(10, 12));
}

TEST_F(AtomicHashTest, AnyOtherMethodThanKeepPriorReplaces) {
  table.writeIssued(1, 5, 50, {});
  table.invalidate(5, 5, static_cast<AtomicHash::InvalidationMethod>(7));
  EXPECT_EQ(event(5, 0).type, EventType::Invalidate);
}

TEST_F(AtomicHashTest, HashCleanRemovesOnlyWhatNobodyClaims) {
  table.writeIssued(1, 5, 50, {});
  table.hashClean(5);
  EXPECT_NE(record(5), nullptr);
  table.readIssued(2, 5, true);
  table.hashClean(5);
  EXPECT_NE(record(5), nullptr);
  table.saveHash(3, 6, 0x77, false);
  table.hashClean(5);
  EXPECT_NE(record(6), nullptr) << "another block's record";
  table.hashClean(6);
  EXPECT_EQ(record(6), nullptr);
}

TEST_F(AtomicHashTest, ContextHoldsTheBlocksThatTheReadWaitsOn) {
  for (uint64_t lba = 100; lba <= 104; ++lba) {
    table.writeIssued(1, lba, 5, {});
  }
  for (const uint64_t lba : {100U, 102U, 104U}) {
    table.readIssued(7, lba, false);
  }
  table.readIssued(8, 101, false);
  EXPECT_EQ(table.getContext(100, 104, 7).size(), 3U);
  EXPECT_EQ(table.getContext(100, 103, 7).size(), 2U);
  EXPECT_EQ(table.getContext(101, 104, 7).size(), 2U);
  EXPECT_EQ(table.getContext(102, 102, 7).size(), 1U);
  EXPECT_EQ(table.getContext(104, 100, 7).size(), 0U);
  EXPECT_EQ(table.getContext(0, ~uint64_t{0}, 9).size(), 0U);
  const AtomicContext context = table.getContext(100, 104, 8);
  EXPECT_EQ(context.size(), 1U);
  EXPECT_EQ(context.peek(101).status, 0);
  EXPECT_EQ(context.peek(100).status, -1004);
}

TEST_F(AtomicHashTest, AContextOutlivesTheRecord) {
  table.writeIssued(1, 9, 5, {true, 1, 9});
  table.readIssued(2, 9, true);
  const AtomicContext context = table.getContext(9, 9, 2);
  table.readFinished(2, 9, false);
  ASSERT_EQ(record(9), nullptr);
  EXPECT_EQ(context.peek(9).block_num, 5U);
  EXPECT_EQ(context.peek(9).embed.lba, 9U);
}

TEST_F(AtomicHashTest, AnAtomicWriteOverCapturedContentCanBeJudgedByStampOrHash) {
  const std::vector<uint8_t> old(512, 0x5A);
  const uint64_t hash = blockHash(old.data(), old.data() + old.size());
  table.saveHash(2, 50, hash, true);
  table.atomicWriteIssued(3, 50, 9, {true, 3, 50}, {0, 1, 0});
  table.readIssued(4, 50, true);
  const AtomicContext context = table.getContext(50, 50, 4);
  LazyHasher oldHasher(old.data(), old.data() + old.size());
  EXPECT_EQ(context.observe(50, {0x80001, {true, 77, 77}}, oldHasher), 0);
  EXPECT_TRUE(oldHasher.computed);
  EXPECT_EQ(context.peek(50).block_type, BlockType::Hash);
  EXPECT_EQ(context.peek(50).hash, hash);
}

}  // namespace
}  // namespace vdl
