#include "CommandTrace.h"

#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

#include "support_model/Allocations.h"
#include "support_model/FakeClock.h"

namespace vdl {
namespace {

constexpr SenseParser::Kcq kcq{3, 0x11, 1};

TEST(CommandTrace, RingSizeFollowsTheDepthOrElseTheQueue) {
  EXPECT_EQ(CommandTrace::ringSize(0, 4096), 16484U);
  EXPECT_EQ(CommandTrace::ringSize(0, 1), 104U);
  EXPECT_EQ(CommandTrace::ringSize(0, 1'000'000), 4'000'100U);
  EXPECT_EQ(CommandTrace::ringSize(1, 4096), 2000U);
  EXPECT_EQ(CommandTrace::ringSize(499, 4096), 2000U);
  EXPECT_EQ(CommandTrace::ringSize(500, 4096), 2000U);
  EXPECT_EQ(CommandTrace::ringSize(501, 4096), 2004U);
  EXPECT_EQ(CommandTrace::ringSize(16'000'000, 4096), 64'000'000U);
}

TEST(CommandTrace, BeginsEmpty) {
  const CommandTrace trace(10);
  EXPECT_EQ(trace.size(), 10U);
  EXPECT_EQ(trace.count(), 0U);
  EXPECT_EQ(trace.nextIndex(), 0U);
  EXPECT_EQ(trace.history(), "");
  for (uint64_t i = 0; i < 10; ++i) {
    EXPECT_EQ(trace.entry(i).type, TraceType::Unknown);
    EXPECT_EQ(trace.entry(i).lba, 0U);
  }
  EXPECT_EQ(trace.slot(0).type, TraceType::Unknown);
  EXPECT_EQ(trace.slot(1023).type, TraceType::Unknown);
}

TEST(CommandTrace, AFullRingOverwritesItsOldestEntry) {
  CommandTrace trace(2000);
  for (uint64_t id = 1; id <= 2000; ++id) {
    trace.traceWriteIssued(id, 1, id, 0, 0);
  }
  EXPECT_EQ(trace.nextIndex(), 0U);
  EXPECT_EQ(trace.count(), 2000U);
  EXPECT_EQ(trace.entry(0).cmd_id, 1U);
  trace.traceWriteIssued(2001, 1, 2001, 0, 0);
  EXPECT_EQ(trace.nextIndex(), 1U);
  EXPECT_EQ(trace.count(), 2001U);
  EXPECT_EQ(trace.entry(0).cmd_id, 2001U);
  EXPECT_EQ(trace.entry(1).cmd_id, 2U);
}

TEST(CommandTrace, AnOverwrittenEntryKeepsNothingOfTheOldOne) {
  CommandTrace trace(1);
  trace.traceReadIssued(1, 2, 3, 4, 5, true);
  trace.tracePowerOff();
  EXPECT_EQ(trace.entry(0).lba, 0U);
  EXPECT_EQ(trace.entry(0).cmd_id, 0U);
  EXPECT_EQ(trace.entry(0).xfer_len, 0U);
  EXPECT_EQ(trace.entry(0).block, 0U);
  EXPECT_EQ(trace.entry(0).flag, 0U);
}

/// An operation on tag 5 with LBA 0x64, length 8 and id 1, and what it must leave.
struct Operation {
  const char* name;
  std::function<void(CommandTrace&, uint32_t tag)> call;
  TraceType type;
  bool setsSlot;
  uint32_t block;
  uint8_t flag;
  uint8_t key;
};

const std::vector<Operation>& commandOperations() {
  static const std::vector<Operation> operations{
      {"traceWriteIssued", [](auto& t, auto tag) { t.traceWriteIssued(0x64, 8, 1, tag, 7); }, TraceType::WriteIssued,
       true, 7, 0, 0},
      {"traceWriteAtomicIssued", [](auto& t, auto tag) { t.traceWriteAtomicIssued(0x64, 8, 1, tag, 7); },
       TraceType::WriteAtomicIssued, true, 7, 0, 0},
      {"traceWriteSameIssued", [](auto& t, auto tag) { t.traceWriteSameIssued(0x64, 8, 1, tag, 7); },
       TraceType::WriteSameIssued, true, 7, 0, 0},
      {"traceTrimIssued", [](auto& t, auto tag) { t.traceTrimIssued(0x64, 8, 1, tag); }, TraceType::TrimIssued, true, 0,
       0, 0},
      {"tracePreReadIssued", [](auto& t, auto tag) { t.tracePreReadIssued(0x64, 8, 1, tag); }, TraceType::PreReadIssued,
       true, 0, 0, 0},
      {"traceReadIssued", [](auto& t, auto tag) { t.traceReadIssued(0x64, 8, 1, tag, 7, true); }, TraceType::ReadIssued,
       true, 7, 1, 0},
      {"traceVerifyIssued", [](auto& t, auto tag) { t.traceVerifyIssued(0x64, 8, 1, tag, 7, false); },
       TraceType::VerifyIssued, true, 7, 0, 0},
      {"traceWriteFinished", [](auto& t, auto tag) { t.traceWriteFinished(0x64, 8, 1, tag, 0xF7C3, kcq); },
       TraceType::WriteFinished, false, 0xF7C3, 0, 3},
      {"traceReadFinished", [](auto& t, auto tag) { t.traceReadFinished(0x64, 8, 1, tag, 0xF7C3, kcq); },
       TraceType::ReadFinished, false, 0xF7C3, 0, 3},
      {"traceVerifyFinished", [](auto& t, auto tag) { t.traceVerifyFinished(0x64, 8, 1, tag, 0xF7C3, kcq); },
       TraceType::VerifyFinished, false, 0xF7C3, 0, 3},
      {"traceWriteAborted", [](auto& t, auto tag) { t.traceWriteAborted(0x64, 8, 1, tag); }, TraceType::WriteAborted,
       false, 0, 0, 0},
      {"traceReadAborted", [](auto& t, auto tag) { t.traceReadAborted(0x64, 8, 1, tag); }, TraceType::ReadAborted,
       false, 0, 0, 0},
      {"traceVerifyAborted", [](auto& t, auto tag) { t.traceVerifyAborted(0x64, 8, 1, tag); }, TraceType::VerifyAborted,
       false, 0, 0, 0},
      {"traceWriteSplice", [](auto& t, auto tag) { t.traceWriteSplice(0x64, 8, 1, tag, 0xF7C3, kcq); },
       TraceType::WriteSplice, false, 0xF7C3, 0, 3},
  };
  return operations;
}

TEST(CommandTrace, EachCommandOperationAppendsItsEntry) {
  for (const Operation& operation : commandOperations()) {
    SCOPED_TRACE(operation.name);
    CommandTrace trace(4);
    operation.call(trace, 5);
    ASSERT_EQ(trace.count(), 1U);
    const CommandTrace::TraceInfo& entry = trace.entry(0);
    EXPECT_EQ(entry.type, operation.type);
    EXPECT_EQ(entry.lba, 0x64U);
    EXPECT_EQ(entry.xfer_len, 8U);
    EXPECT_EQ(entry.cmd_id, 1U);
    EXPECT_EQ(entry.tag, 5U);
    EXPECT_EQ(entry.block, operation.block);
    EXPECT_EQ(entry.flag, operation.flag);
    EXPECT_EQ(entry.kcq.key, operation.key);
  }
}

TEST(CommandTrace, AnIssueSetsTheTagsRow) {
  for (const Operation& operation : commandOperations()) {
    if (operation.setsSlot) {
      SCOPED_TRACE(operation.name);
      CommandTrace trace(4);
      operation.call(trace, 5);
      EXPECT_EQ(trace.slot(5).lba, 0x64U);
      EXPECT_EQ(trace.slot(5).xfer_len, 8U);
      EXPECT_EQ(trace.slot(5).type, operation.type);
      EXPECT_EQ(trace.slot(4).type, TraceType::Unknown);
    }
  }
}

TEST(CommandTrace, AnEndSetsOnlyTheTypeOfTheTagsRow) {
  for (const Operation& operation : commandOperations()) {
    if (!operation.setsSlot && operation.type != TraceType::WriteSplice) {
      SCOPED_TRACE(operation.name);
      CommandTrace trace(4);
      trace.traceWriteIssued(0x1234, 3, 9, 5, 7);
      operation.call(trace, 5);
      EXPECT_EQ(trace.slot(5).lba, 0x1234U);
      EXPECT_EQ(trace.slot(5).xfer_len, 3U);
      EXPECT_EQ(trace.slot(5).type, operation.type);
    }
  }
}

TEST(CommandTrace, ASpliceAndAnOvertakingReadLeaveTheTagsRow) {
  CommandTrace trace(4);
  trace.traceReadIssued(0x64, 8, 1, 5, 7, false);
  trace.traceWriteSplice(1, 2, 3, 5, 0, kcq);
  trace.traceRecvOutOfOrder(10, 5, 11);
  EXPECT_EQ(trace.slot(5).lba, 0x64U);
  EXPECT_EQ(trace.slot(5).xfer_len, 8U);
  EXPECT_EQ(trace.slot(5).type, TraceType::ReadIssued);
}

TEST(CommandTrace, ASyncHasATagAndNoRange) {
  CommandTrace trace(4);
  trace.traceWriteIssued(0x64, 8, 1, 5, 7);
  trace.traceSyncIssued(5);
  EXPECT_EQ(trace.entry(1).type, TraceType::SyncIssued);
  EXPECT_EQ(trace.entry(1).tag, 5U);
  EXPECT_EQ(trace.slot(5).lba, 0U);
  EXPECT_EQ(trace.slot(5).xfer_len, 0U);
  EXPECT_EQ(trace.slot(5).type, TraceType::SyncIssued);
  trace.traceSyncFinished(5, 0xABCD, kcq);
  EXPECT_EQ(trace.slot(5).type, TraceType::SyncFinished);
  EXPECT_EQ(trace.entry(2).block, 0xABCDU);
  EXPECT_EQ(trace.entry(2).kcq.code, 0x11U);
}

TEST(CommandTrace, AMiscompareKeepsTheFoundNumberInItsTag) {
  CommandTrace trace(4);
  trace.traceMiscompare(103, 8, 0x80001, 3, true);
  EXPECT_EQ(trace.entry(0).type, TraceType::Miscompare);
  EXPECT_EQ(trace.entry(0).lba, 103U);
  EXPECT_EQ(trace.entry(0).cmd_id, 3U);
  // No tag, so it may be as large as it likes.
  EXPECT_EQ(trace.entry(0).tag, 0x80001U);
  EXPECT_EQ(trace.entry(0).block, 8U);
  EXPECT_EQ(trace.entry(0).flag, 1U);
}

TEST(CommandTrace, AnOvertakingReadNamesTheWriteInPlaceOfAnLba) {
  CommandTrace trace(4);
  trace.traceRecvOutOfOrder(10, 9, 11);
  EXPECT_EQ(trace.entry(0).type, TraceType::RecvOutOfOrder);
  EXPECT_EQ(trace.entry(0).lba, 10U);
  EXPECT_EQ(trace.entry(0).tag, 9U);
  EXPECT_EQ(trace.entry(0).cmd_id, 11U);
  EXPECT_EQ(trace.entry(0).xfer_len, 0U);
}

TEST(CommandTrace, RangesKeepTheirTwoEnds) {
  CommandTrace trace(4);
  trace.traceInvalidate(0x1000, 0x1003);
  trace.traceZoneReset(0x2000, 0x2100);
  EXPECT_EQ(trace.entry(0).type, TraceType::InvalidateRange);
  EXPECT_EQ(trace.entry(0).lba, 0x1000U);
  EXPECT_EQ(trace.entry(0).cmd_id, 0x1003U);
  EXPECT_EQ(trace.entry(1).type, TraceType::ZoneReset);
  EXPECT_EQ(trace.entry(1).lba, 0x2000U);
  EXPECT_EQ(trace.entry(1).cmd_id, 0x2100U);
}

TEST(CommandTrace, PowerTogglesCarryTheTimeInMilliseconds) {
  modeltest::FakeClock clock(1'000'000, 250'999);
  CommandTrace trace(4);
  trace.tracePowerOff();
  clock.set(1'000'002, 0);
  trace.tracePowerOn();
  EXPECT_EQ(trace.entry(0).type, TraceType::PowerToggleOff);
  EXPECT_EQ(trace.entry(0).tag, 1'000'000'250U);
  EXPECT_EQ(trace.entry(1).type, TraceType::PowerToggleOn);
  EXPECT_EQ(trace.entry(1).tag, 1'000'002'000U);
}

TEST(CommandTrace, NumbersThatAreNoTagsMayBeLarge) {
  CommandTrace trace(8);
  trace.traceMiscompare(1, 2, 0xFFFFFFFF, 3, false);
  trace.tracePowerOff();
  trace.traceInvalidate(5000, 6000);
  trace.traceZoneReset(5000, 6000);
  EXPECT_EQ(trace.count(), 4U);
}

TEST(CommandTrace, TheLastTagIsAccepted) {
  CommandTrace trace(32);
  for (const Operation& operation : commandOperations()) {
    operation.call(trace, 1023);
  }
  trace.traceRecvOutOfOrder(1, 1023, 2);
  trace.traceSyncIssued(1023);
  trace.traceSyncFinished(1023, 0, {});
  EXPECT_EQ(trace.count(), commandOperations().size() + 3);
  EXPECT_EQ(trace.slot(1023).type, TraceType::SyncFinished);
}

TEST(CommandTrace, ASlotBeyondTheTagsIsEmpty) {
  const CommandTrace trace(1);
  EXPECT_EQ(trace.slot(1024).type, TraceType::Unknown);
  EXPECT_EQ(trace.slot(0xFFFFFFFF).type, TraceType::Unknown);
}

TEST(CommandTraceDeath, ATagBeyondTheTableAbortsAndNamesTheOperation) {
  testing::FLAGS_gtest_death_test_style = "threadsafe";
  for (const Operation& operation : commandOperations()) {
    SCOPED_TRACE(operation.name);
    CommandTrace trace(4);
    EXPECT_EXIT(operation.call(trace, 1024), testing::KilledBySignal(SIGABRT),
                std::string("CommandTrace.*") + operation.name + ".*tag_id < 1024 && tag_id >= 0");
  }
  CommandTrace trace(4);
  EXPECT_EXIT(trace.traceSyncIssued(1024), testing::KilledBySignal(SIGABRT), "traceSyncIssued");
  EXPECT_EXIT(trace.traceSyncFinished(1024, 0, {}), testing::KilledBySignal(SIGABRT), "traceSyncFinished");
  EXPECT_EXIT(trace.traceRecvOutOfOrder(1, 1024, 2), testing::KilledBySignal(SIGABRT), "traceRecvOutOfOrder");
}

TEST(CommandTraceDeath, AnAppendToARingWithoutEntriesAborts) {
  testing::FLAGS_gtest_death_test_style = "threadsafe";
  CommandTrace trace(0);
  EXPECT_EXIT(trace.tracePowerOff(), testing::KilledBySignal(SIGABRT), "trace_idx < trace_queue_size");
}

TEST(CommandTrace, AppendingAllocatesNothing) {
  CommandTrace trace(100);
  const std::vector<Operation>& operations = commandOperations();
  const uint64_t before = modeltest::allocations();
  for (int round = 0; round < 50; ++round) {
    for (const Operation& operation : operations) {
      operation.call(trace, 7);
    }
  }
  EXPECT_EQ(modeltest::allocations(), before);
  EXPECT_EQ(trace.count(), 50 * operations.size());
}

TEST(CommandTrace, HasANameForEveryTypeAndNoneForOthers) {
  const std::vector<std::string> names{"Unknown",          "Write_Issued",       "Write_Finished",
                                       "Write_ABORTED",    "WriteAtomic_Issued", "WriteSame_Issued",
                                       "Trim_Issued",      "Pre-Read_Issued",    "Read_Issued",
                                       "Read_Finished",    "Read_ABORTED",       "Verify_Issued",
                                       "Verify_Finished",  "Verify_ABORTED",     "Miscompare",
                                       "Write Splice",     "Recv Out Of Order",  "Power Toggle Off",
                                       "Power Toggle On",  "Sync Cache Issued",  "Sync Cache Finished",
                                       "Invalidate Range", "Zone Reset"};
  for (size_t type = 0; type < names.size(); ++type) {
    EXPECT_EQ(traceTypeName(static_cast<TraceType>(type)), names[type]);
  }
  EXPECT_STREQ(traceTypeName(static_cast<TraceType>(23)), "Unknown");
  EXPECT_STREQ(traceTypeName(static_cast<TraceType>(255)), "Unknown");
}

}  // namespace
}  // namespace vdl
