#include "DriveData.h"

#include <gtest/gtest.h>

#include <memory>
#include <set>
#include <vector>

#include "AlignedMemory.h"
#include "support_model/Allocations.h"
#include "support_model/ModelFramework.h"

namespace vdl {
namespace {

using modeltest::MapCall;

class DriveDataTest : public testing::Test {
 public:
  ~DriveDataTest() override {
    for (void* data : drive.threadState.registered) {
      Corvane::freeDriveData(data);
    }
  }
  DriveDataTest() = default;
  DriveDataTest(const DriveDataTest&) = delete;
  DriveDataTest& operator=(const DriveDataTest&) = delete;

 protected:
  Corvane::DriveData& data() { return *static_cast<Corvane::DriveData*>(drive.threadState.registered.at(0)); }

  modeltest::Drive drive;
};

TEST_F(DriveDataTest, MapsItsVariablesInOrder) {
  ASSERT_EQ(Corvane::initDriveData(&drive.thread), 0);
  const std::vector<MapCall> expected{{"u64", "LBA", 3, 0},
                                      {"u32", "XferLength", 3, 0},
                                      {"u32", "AtomicBound", 3, 0},
                                      {"u32", "TestMaxXferLength", 1, 0},
                                      {"u64", "MaxLBA", 1, 0},
                                      {"u64", "MinLBA", 1, 0},
                                      {"u32", "EPO", 5, 0},
                                      {"u32", "LastTagID", 1, 0},
                                      {"u32", "ReadDataIsValid", 1, 0},
                                      {"u32", "DeviceInterface", 1, 0},
                                      {"u32", "LastStatusByte", 1, 0},
                                      {"tagged", "ReadDataPtr[TagID]", 5, 0},
                                      {"tagged", "CDB[TagID]", 1, 0},
                                      {"tagged", "RecvCDB[TagID]", 1, 0},
                                      {"buffer", "WriteData", 2, 0},
                                      {"buffer", "LastErrSenseData", 1, 0},
                                      {"tagged", "ParameterList[TagID]", 5, 0},
                                      {"u32", "BucketIndex", 2, 0},
                                      {"u32", "SkipGen", 2, 0},
                                      {"bool", "DeviceReset", 3, 0},
                                      {"u64", "WriteLBA", 5, 0},
                                      {"u32", "WriteXferLength", 5, 0},
                                      {"u32", "WriteCmdUsed", 2, 0},
                                      {"queue", "CSZoneReset", 5, 0},
                                      {"u32", "HostManaged", 5, 0},
                                      {"queue", "CVNInvalidateRanges", 5, 0}};
  EXPECT_EQ(drive.threadState.maps, expected);
  const std::set<int*> cells(drive.threadState.errorCells.begin(), drive.threadState.errorCells.end());
  EXPECT_EQ(cells.size(), 1U) << "all maps share one error cell";
  EXPECT_EQ(drive.threadState.registered.size(), 1U);
}

TEST_F(DriveDataTest, HandlesAreTheThreads) {
  ASSERT_EQ(Corvane::initDriveData(&drive.thread), 0);
  EXPECT_EQ(data().lba, &drive.u64("LBA"));
  EXPECT_EQ(data().xferLength, &drive.u32("XferLength"));
  EXPECT_EQ(data().minLBA, &drive.u64("MinLBA"));
  EXPECT_EQ(data().maxLBA, &drive.u64("MaxLBA"));
  EXPECT_EQ(data().writeData, &drive.buffer("WriteData"));
  EXPECT_EQ(data().writeLBA, &drive.u64("WriteLBA"));
  EXPECT_EQ(data().writeCmdUsed, &drive.u32("WriteCmdUsed"));
}

TEST_F(DriveDataTest, AFreshRecordIsEmpty) {
  ASSERT_EQ(Corvane::initDriveData(&drive.thread), 0);
  EXPECT_EQ(data().nextCmdId, 1U);
  EXPECT_TRUE(data().skipGenOnList);
  EXPECT_FALSE(data().readPhase || data().syncIssued || data().syncDone);
  EXPECT_FALSE(data().miscompareSeen || data().failureSeen);
  EXPECT_EQ(data().miscompareLBA, 0U);
  EXPECT_EQ(data().powerOnTime, 0.0);
  EXPECT_EQ(data().deviceParameter, 0xFFFFFFFFU);
  EXPECT_EQ(data().buckets, nullptr);
  EXPECT_EQ(data().embedBuffer, nullptr);
  EXPECT_EQ(data().zeroBlock, nullptr);
  EXPECT_EQ(data().trace, nullptr);
  EXPECT_EQ(data().referenceCompareData, nullptr);
  EXPECT_EQ(data().driveCompareData, nullptr);
  EXPECT_TRUE(data().tagBuffers.empty());
  EXPECT_TRUE(data().preReadRequeue.empty() && data().preReadFinished.empty() && data().preReadSent.empty());
  EXPECT_TRUE(data().readSent.empty() && data().verifySent.empty() && data().writeSent.empty());
  EXPECT_TRUE(data().writeFinished.empty() && data().comparableReads.empty());
  EXPECT_FALSE(data().firstExecute);
}

TEST_F(DriveDataTest, AFailedMapDoesNotEndTheSeriesAndTheLastFailureCounts) {
  drive.threadState.failures = {{3, -11}, {20, -12}};
  EXPECT_EQ(Corvane::initDriveData(&drive.thread), -12);
  EXPECT_EQ(drive.threadState.maps.size(), 26U);
  EXPECT_TRUE(drive.threadState.registered.empty());
}

TEST_F(DriveDataTest, ARecordThatIsNotTakenIsFreed) {
  drive.threadState.registrationStatus = -7;
  EXPECT_EQ(Corvane::initDriveData(&drive.thread), -7);
  ASSERT_EQ(drive.threadState.registered.size(), 1U);
  // Freed by the agent: freeing it once more would be a double free, which the sanitizers see.
  drive.threadState.registered.clear();
}

TEST_F(DriveDataTest, WithoutMemoryNothingIsMapped) {
  const modeltest::FailNothrow scarce(1, 1);
  EXPECT_EQ(Corvane::initDriveData(&drive.thread), -1002);
  EXPECT_EQ(scarce.failed(), 1U);
  EXPECT_TRUE(drive.threadState.maps.empty());
}

TEST_F(DriveDataTest, FreeingGivesEverythingBack) {
  ASSERT_EQ(Corvane::initDriveData(&drive.thread), 0);
  Corvane::freeDriveData(drive.threadState.registered.at(0));
  drive.threadState.registered.clear();
  const int64_t before = modeltest::liveAllocations();
  auto record = std::make_unique<Corvane::DriveData>();
  record->trace = new CommandTrace(10);
  record->buckets = new uint8_t[10];
  record->embedBuffer = new uint8_t[10];
  record->zeroBlock = new uint8_t[10];
  record->referenceCompareData = new Buffer;
  record->driveCompareData = new Buffer;
  ASSERT_EQ(record->driveCompareData->reserve(512), 0);
  record->tagBuffers = {newPageAligned(5), nullptr, newPageAligned(5)};
  record->writeFinished.push_back({1, 2, 3, 0, 0});
  Corvane::freeDriveData(record.release());
  EXPECT_EQ(modeltest::liveAllocations(), before);
}

// ---- the write buffers ----

class FirstExecute : public DriveDataTest {
 protected:
  FirstExecute() { drive.thread.queueDepth = 4; }

  int run(uint32_t maxXferLength) {
    if (drive.threadState.registered.empty()) {
      Corvane::initDriveData(&drive.thread);
    }
    *data().testMaxXferLength = maxXferLength;
    return agent::firstExecuteInit(&drive.thread, &data(), &config);
  }

  Corvane::ConfigData config;
};

TEST_F(FirstExecute, MakesABufferForEveryTag) {
  EXPECT_EQ(run(8), 0);
  ASSERT_EQ(data().tagBuffers.size(), 4U);
  EXPECT_EQ(data().tagBufferBytes, std::vector<uint64_t>(4, 4096));
  for (const uint8_t* buffer : data().tagBuffers) {
    ASSERT_NE(buffer, nullptr);
    EXPECT_EQ(std::vector<uint8_t>(buffer, buffer + 4096), std::vector<uint8_t>(4096, 0));
  }
}

TEST_F(FirstExecute, LeavesRoomForEndToEndBytes) {
  config.e2eCondition.anyMask = 1;
  EXPECT_EQ(run(8), 0);
  EXPECT_EQ(data().tagBufferBytes.at(0), 4160U);
}

TEST_F(FirstExecute, LeavesRoomForProtectionBytes) {
  drive.thread.protectionEnabled = true;
  drive.thread.protectionBytes = 8;
  EXPECT_EQ(run(8), 0);
  EXPECT_EQ(data().tagBufferBytes.at(0), 4160U);
  config.e2eCondition.anyMask = 1;
  EXPECT_EQ(run(8), 0);
  EXPECT_EQ(data().tagBufferBytes.at(0), 4224U);
}

TEST_F(FirstExecute, WithoutTagsMakesNothing) {
  drive.thread.queueDepth = 0;
  EXPECT_EQ(run(8), 0);
  EXPECT_TRUE(data().tagBuffers.empty());
}

TEST_F(FirstExecute, ATransferLengthOfZeroIsNoFailure) {
  EXPECT_EQ(run(0), 0);
  EXPECT_EQ(data().tagBuffers.size(), 4U);
}

TEST_F(FirstExecute, ABufferThatCannotBeHadIsReportedOnceAndTheOthersStay) {
  ASSERT_EQ(Corvane::initDriveData(&drive.thread), 0);
  const modeltest::FailNothrow scarce(2, 1);
  EXPECT_EQ(run(8), -1002);
  EXPECT_EQ(data().tagBuffers.at(1), nullptr);
  EXPECT_NE(data().tagBuffers.at(0), nullptr);
  EXPECT_NE(data().tagBuffers.at(3), nullptr);
  EXPECT_EQ(drive.lines(),
            (std::vector<modeltest::LogLine>{{2, "Corvane: Failed memory allocation of local write buffers"}}));
}

TEST_F(FirstExecute, ASecondTimeFreesTheOldBuffersAndTheViewOfThem) {
  EXPECT_EQ(run(8), 0);
  data().writeData->data = data().tagBuffers[0];
  data().writeData->capacity = data().writeData->size = 512;
  const int64_t before = modeltest::liveAllocations();
  EXPECT_EQ(run(8), 0);
  EXPECT_EQ(modeltest::liveAllocations(), before);
  EXPECT_EQ(data().writeData->data, nullptr);
}

}  // namespace
}  // namespace vdl
