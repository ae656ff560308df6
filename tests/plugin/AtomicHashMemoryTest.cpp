#include <gtest/gtest.h>

#include "AtomicHash.h"
#include "support_model/Allocations.h"
#include "support_model/AtomicHashFixture.h"

namespace vdl {
namespace {

using AtomicHashMemoryTest = modeltest::AtomicHashFixture;

TEST_F(AtomicHashMemoryTest, SteadyStateAllocatesNothing) {
  table.writeIssued(1, 0, 5, {});
  table.readIssued(2, 0, true);
  table.readFinished(2, 0, false);
  const uint64_t before = modeltest::allocations();
  for (uint64_t i = 0; i < 100000; ++i) {
    table.writeIssued(2 * i + 10, i, 5, {});
    table.readIssued(2 * i + 11, i, true);
    table.readFinished(2 * i + 11, i, false);
  }
  EXPECT_EQ(modeltest::allocations(), before);
}

TEST_F(AtomicHashMemoryTest, SteadyStateOfRunsAllocatesNothing) {
  const auto useAndForget = [&](uint64_t id, const BlockRun& run) {
    EXPECT_EQ(table.writeIssued(id, run, {5, {true, id, run.first}, true, true}), 0);
    EXPECT_EQ(table.readIssued(id + 1, run, true), 0);
    EXPECT_EQ(table.readFinished(id + 1, run, false), 0);
  };
  useAndForget(1, {0, 200});
  const uint64_t before = modeltest::allocations();
  for (uint64_t i = 0; i < 2000; ++i) {
    useAndForget(2 * i + 10, BlockRun{i * 50, i * 50 + 100, i % 2 == 0 ? 1U : 2U});
  }
  EXPECT_TRUE(table.records().empty());
  EXPECT_EQ(modeltest::allocations(), before);
}

TEST_F(AtomicHashMemoryTest, NoMemoryForARecordIsAStatus) {
  const modeltest::FailNothrow noMemory;
  EXPECT_EQ(table.writeIssued(0x2A, 0x1F, 5, {}), -1002);
  EXPECT_EQ(table.saveHash(0x2A, 0x1F, 5, true), -1002);
  EXPECT_EQ(errors.take(), "");
  EXPECT_EQ(table.atomicWriteIssued(0x2A, 0x1F, 5, {}, {}), -1002);
  EXPECT_EQ(errors.take(), "<E> atomicWriteIssued failed getRecord() lba:1f cmd_id:2a\n");
  EXPECT_EQ(table.readIssued(0x2A, 0x1F, false), -1002);
  EXPECT_EQ(errors.take(), "<E> readIssued failed getRecord, !record !expect lba:1f cmd_id:2a\n");
  EXPECT_TRUE(table.records().empty());
  EXPECT_EQ(table.references(), 0U);
}

TEST_F(AtomicHashMemoryTest, NoMemoryForAnEventLeavesItOutSilently) {
  const modeltest::FailNothrow noMegabyte(1, ~uint64_t{0}, 1000000);
  EXPECT_EQ(table.writeIssued(1, 9, 5, {}), 0);
  EXPECT_EQ(table.atomicWriteIssued(2, 9, 5, {}, {0, 1, 0}), 0);
  EXPECT_EQ(table.saveHash(3, 9, 5, true), 0);
  table.invalidate(9, 9, AtomicHash::InvalidateReplace);
  EXPECT_GT(noMegabyte.failed(), 0U);
  EXPECT_EQ(references(9), 3U);
  EXPECT_EQ(ids(9), Ids{});
  EXPECT_EQ(table.peek(9).status, -1003);
  EXPECT_FALSE(known(9));
  table.writeFinished(1, 9);
  table.hardWriteError(1, 9);
  EXPECT_EQ(errors.take(), "");
}

TEST_F(AtomicHashMemoryTest, NoMemoryForAWaitIsAStatusWithoutALine) {
  table.writeIssued(1, 9, 5, {});
  const modeltest::FailNothrow noMegabyte(1, ~uint64_t{0}, 1000000);
  EXPECT_EQ(table.readIssued(2, 9, false), -1002);
  EXPECT_EQ(errors.take(), "");
  EXPECT_EQ(record(9)->wait_read, nullptr);
  EXPECT_EQ(references(9), 1U);
}

TEST_F(AtomicHashMemoryTest, AReadOfARecordWithoutEventsSeesNothing) {
  {
    const modeltest::FailNothrow noMegabyte(1, ~uint64_t{0}, 1000000);
    table.writeIssued(1, 9, 5, {});
  }
  EXPECT_EQ(table.readIssued(2, 9, true), 0);
  EXPECT_EQ(table.getContext(9, 9, 2).size(), 0U) << "there is no history to copy";
  EXPECT_EQ(table.readFinished(2, 9, false).status, -1003);
  EXPECT_EQ(record(9), nullptr);
  EXPECT_EQ(errors.take(), "");
}

TEST(AtomicHashMemory, TellsWhatItTakes) {
  const int64_t before = modeltest::liveBytes();
  AtomicHash table;
  EXPECT_EQ(table.bytes(), 0U);
  const auto expectTold = [&](const char* when) {
    const auto taken = static_cast<double>(modeltest::liveBytes() - before);
    // The allocator rounds up, to whole pages of the machine when much is asked for.
    EXPECT_LE(static_cast<double>(table.bytes()), taken) << when;
    EXPECT_GE(static_cast<double>(table.bytes()), taken * 0.97) << when;
  };
  table.writeIssued(1, 9, 5, {});
  expectTold("records and events");
  table.readIssued(2, 9, true);
  expectTold("waits, too");
  for (uint64_t lba = 0; lba < 100'000; ++lba) {
    table.writeIssued(3, lba, 5, {});
    table.readIssued(4, lba, false);
  }
  expectTold("many chunks of each");
}

TEST(AtomicHashMemory, EverythingGoesWithTheTable) {
  const int64_t before = modeltest::liveAllocations();
  {
    AtomicHash table;
    for (uint64_t lba = 0; lba < 20000; ++lba) {
      table.writeIssued(1, lba, 5, {});
      table.readIssued(2, lba, false);
    }
    EXPECT_GT(modeltest::liveAllocations(), before);
  }
  EXPECT_EQ(modeltest::liveAllocations(), before);
}

}  // namespace
}  // namespace vdl
