#include "host/drive/engine/EngineDrive.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <deque>

#include "host/drive/SenseData.h"
#include "tests/drive/CommandMaker.h"

namespace corvane::host {
namespace {

using Operation = EngineRequest::Operation;

/// What a target was told and what an engine was asked, for both outlived by the test.
struct Seen {
  std::vector<EngineRequest> requests;
  std::vector<FailedOperation> failures;
  bool takesNothing = false;    ///< the engine throws
  std::deque<int64_t> results;  ///< of the next requests; all bytes moved when there is none
};

class FakeTarget : public EngineTarget {
 public:
  FakeTarget(Seen& seen, bool segments) : seen_(seen), segments_(segments) {
    geometry_.blocks = 1000;
    capabilities_.atomicWrite = true;
    capabilities_.trim = true;
    capabilities_.syncCache = true;
  }
  int fd() const override { return -1; }
  std::string name() const override { return "fake"; }
  std::string description(const std::string& engine) const override { return "fake, " + engine; }
  const DriveGeometry& geometry() const override { return geometry_; }
  const DriveCapabilities& capabilities() const override { return capabilities_; }
  TransferLimits limits() const override { return {.splitsAtomicSegments = segments_}; }
  Operation trimOperation() const override { return Operation::writeZeros; }
  void answerFailure(const FailedOperation& failed, DriveCompletion& out) const override {
    seen_.failures.push_back(failed);
    setMediumError(failed, out);
  }

 private:
  Seen& seen_;
  bool segments_;
  DriveGeometry geometry_;
  DriveCapabilities capabilities_;
};

class FakeEngine : public Engine {
 public:
  explicit FakeEngine(Seen& seen) : seen_(seen) {}
  std::string name() const override { return "nothing"; }
  void submit(const EngineRequest& request) override {
    if (seen_.takesNothing) {
      throw std::bad_alloc();
    }
    seen_.requests.push_back(request);
    int64_t result = request.data == nullptr ? 0 : static_cast<int64_t>(request.bytes);
    if (!seen_.results.empty()) {
      result = seen_.results.front();
      seen_.results.pop_front();
    }
    replies_.push_back({request.slot, result});
  }
  bool poll(EngineReply& out, bool) override {
    if (replies_.empty()) {
      return false;
    }
    out = replies_.front();
    replies_.pop_front();
    return true;
  }
  bool waitUpTo(uint64_t /*microseconds*/) override { return !replies_.empty(); }

 private:
  Seen& seen_;
  std::deque<EngineReply> replies_;
};

class EngineDriveTest : public testing::Test {
 protected:
  EngineDrive& drive(bool segments = true) {
    drive_.emplace(std::make_unique<FakeTarget>(seen, segments), 4, std::make_unique<FakeEngine>(seen));
    return *drive_;
  }
  /// An atomic write of eight blocks at LBA 16, in segments of four.
  static DriveCommand atomicWrite(CommandMaker& commands, Bytes& data) {
    DriveCommand atomic = commands.make(CommandKind::writeAtomic, 16, 8, &data);
    atomic.atomicBound = 4;
    return atomic;
  }

  Seen seen;
  Bytes data = Bytes(8 * 512);

 private:
  std::optional<EngineDrive> drive_;
};

TEST_F(EngineDriveTest, AsksForEachSegmentOfAnAtomicWriteAsAWhole) {
  CommandMaker commands(drive());
  EXPECT_EQ(commands.run(atomicWrite(commands, data)).status, scsi_status::good);
  ASSERT_EQ(seen.requests.size(), 2U);
  for (uint32_t i = 0; i < 2; ++i) {
    EXPECT_TRUE(seen.requests[i].atomic);
    EXPECT_EQ(seen.requests[i].operation, Operation::write);
    EXPECT_EQ(seen.requests[i].offset, (16U + 4 * i) * 512);
    EXPECT_EQ(seen.requests[i].bytes, 4U * 512);
    EXPECT_EQ(seen.requests[i].data, data.data() + uint64_t{4} * i * 512);
  }
}

TEST_F(EngineDriveTest, AsksForNothingThatTheTargetDoesNotKnow) {
  CommandMaker commands(drive(false));
  EXPECT_EQ(commands.run(atomicWrite(commands, data)).status, scsi_status::good);
  ASSERT_EQ(seen.requests.size(), 1U);
  EXPECT_FALSE(seen.requests[0].atomic);
  EXPECT_EQ(seen.requests[0].bytes, 8U * 512);
}

TEST_F(EngineDriveTest, APlainWriteIsNotAskedForAsAWhole) {
  CommandMaker commands(drive());
  commands.run(CommandKind::write, 0, 8, &data);
  ASSERT_EQ(seen.requests.size(), 1U);
  EXPECT_FALSE(seen.requests[0].atomic);
}

TEST_F(EngineDriveTest, AFailedSegmentEndsTheAtomicWriteAndIsNamed) {
  CommandMaker commands(drive());
  seen.results = {4 * 512, -EIO};
  const DriveCompletion completion = commands.run(atomicWrite(commands, data));
  EXPECT_EQ(senseNumber(completion), 0x030C00U);
  ASSERT_EQ(seen.failures.size(), 1U);
  EXPECT_EQ(seen.failures[0].lba, 20U);
  EXPECT_EQ(seen.failures[0].endLba, 24U);
  EXPECT_EQ(seen.failures[0].error, EIO);
  EXPECT_EQ(seen.failures[0].command, CommandKind::writeAtomic);
}

TEST_F(EngineDriveTest, ATransferThatMovedAPartIsContinuedThere) {
  CommandMaker commands(drive());
  seen.results = {3 * 512};
  EXPECT_EQ(commands.run(CommandKind::write, 100, 8, &data).status, scsi_status::good);
  ASSERT_EQ(seen.requests.size(), 2U);
  EXPECT_EQ(seen.requests[1].offset, 103U * 512);
  EXPECT_EQ(seen.requests[1].bytes, 5U * 512);
}

TEST_F(EngineDriveTest, NothingMovedIsAFailureAtTheBlockWhereItStopped) {
  CommandMaker commands(drive());
  seen.results = {3 * 512, 0};
  EXPECT_EQ(commands.run(CommandKind::read, 100, 8, &data).bytesTransferred, 0U);
  ASSERT_EQ(seen.failures.size(), 1U);
  EXPECT_EQ(seen.failures[0].error, 0);
  EXPECT_EQ(seen.failures[0].lba, 103U);
  EXPECT_EQ(seen.failures[0].endLba, 108U);
}

TEST_F(EngineDriveTest, ATrimIsWhatTheTargetSays) {
  CommandMaker commands(drive());
  EXPECT_EQ(commands.run(CommandKind::trim, 5, 8).status, scsi_status::good);
  ASSERT_EQ(seen.requests.size(), 1U);
  EXPECT_EQ(seen.requests[0].operation, Operation::writeZeros);
  EXPECT_EQ(seen.requests[0].offset, 5U * 512);
  EXPECT_EQ(seen.requests[0].bytes, 8U * 512);
}

TEST_F(EngineDriveTest, AFailedFlushNamesNoBlock) {
  CommandMaker commands(drive());
  seen.results = {-EIO};
  const DriveCompletion completion = commands.run(CommandKind::syncCache, 0, 0);
  EXPECT_EQ(senseNumber(completion), 0x044400U);
  EXPECT_EQ(senseInformation(completion), ~uint64_t{0});
}

TEST_F(EngineDriveTest, AResetFinishesAnAtomicSegmentAndDropsTheRest) {
  EngineDrive& reset = drive();
  CommandMaker commands(reset);
  seen.results = {2 * 512};
  reset.submit(atomicWrite(commands, data));
  reset.reset();
  ASSERT_EQ(seen.requests.size(), 2U);
  EXPECT_EQ(seen.requests[1].offset, 18U * 512);
  EXPECT_EQ(seen.requests[1].bytes, 2U * 512);
  DriveCompletion completion;
  EXPECT_FALSE(reset.poll(completion, true));
}

TEST_F(EngineDriveTest, ACommandThatCannotBeStartedTakesNoPlace) {
  EngineDrive& full = drive();
  CommandMaker commands(full);
  seen.takesNothing = true;
  for (uint32_t i = 0; i < 2 * full.maxOutstanding(); ++i) {
    EXPECT_THROW(full.submit(commands.make(CommandKind::write, 0, 8, &data)), std::bad_alloc);
  }
  seen.takesNothing = false;
  for (uint32_t i = 0; i < full.maxOutstanding(); ++i) {
    full.submit(commands.make(CommandKind::read, i, 1));
  }
  DriveCompletion completion;
  for (uint32_t i = 0; i < full.maxOutstanding(); ++i) {
    EXPECT_TRUE(full.poll(completion, true));
  }
  EXPECT_FALSE(full.poll(completion, true));
}

TEST_F(EngineDriveTest, SaysWhyItsEngineIsNotTheRing) {
  const EngineDrive plain(std::make_unique<FakeTarget>(seen, true), 4, std::make_unique<FakeEngine>(seen));
  EXPECT_EQ(plain.description(), "fake, nothing");
  const EngineDrive refused(std::make_unique<FakeTarget>(seen, true), 4, std::make_unique<FakeEngine>(seen), "no ring");
  EXPECT_EQ(refused.description(), "fake, nothing (io_uring is refused: no ring)");
}

}  // namespace
}  // namespace corvane::host
