// What the built agent makes of commands that fail, on drives that are good otherwise and on drives that are not.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <set>

#include "host/base/Random.h"
#include "tests/e2e/EndToEnd.h"
#include "tests/e2e/FailingDrive.h"
#include "tests/e2e/SpoilingDrive.h"

namespace corvane::host::e2e {
namespace {

using testing::HasSubstr;
using testing::StartsWith;

constexpr CommandMix readWrite{.write = 1, .read = 1};
constexpr CommandMix readVerify{.write = 1, .read = 1, .verify = 1};
constexpr CommandMix everyKind{.write = 1, .writeAtomic = 1, .writeSame = 1, .trim = 1, .read = 1, .verify = 1};
constexpr CommandMix atomicOnly{.write = 0, .writeAtomic = 1, .read = 1};

const std::pair<std::string, std::string> splice{"Write Splice Detection", "true"};

/// So that read-backs begin early in a short test.
TestDefinition shortTest(const Workspace& workspace, const CommandMix& mix) {
  TestDefinition test = prepared({}, workspace);
  test.mix = mix;
  test.driveAddresses = {"sim:16m"};
  test.commandLimit = 8000;
  test.agentOptions = {{"Min Queue Size", "64"}, {"Max Queue Size", "256"}};
  return test;
}

RunResult runWith(const TestDefinition& test, const FailingDrive::Judge& judge) {
  return runTest(test,
                 [&](std::unique_ptr<Drive> drive) { return std::make_unique<FailingDrive>(std::move(drive), judge); });
}

void expectSilence(const RunResult& result) {
  EXPECT_EQ(result.status, RunStatus::clean) << agentLines(result);
  EXPECT_EQ(result.drives.at(0).messages.warnings + result.drives.at(0).messages.errors, 0U) << agentLines(result);
  EXPECT_GT(result.totals().failed, 20U);
  EXPECT_GT(result.totals().blocksCompared, 0U);
}

/// One command in so many fails, now with nothing done and now with its first blocks; an atomic write does nothing.
class NowAndThen {
 public:
  using Shape = std::function<Fault(const DriveCommand&, uint32_t blocksDone)>;

  NowAndThen(std::set<CommandKind> kinds, Shape shape) : kinds_(std::move(kinds)), shape_(std::move(shape)) {}

  std::optional<Fault> operator()(const DriveCommand& command) {
    constexpr uint64_t oneIn = 25;
    if (kinds_.count(command.kind) == 0 || random_.below(oneIn) != 0) {
      return std::nullopt;
    }
    const bool inPart = changesMedium(command.kind) && command.kind != CommandKind::writeAtomic;
    return shape_(command, inPart ? static_cast<uint32_t>(random_.below(command.blocks)) : 0);
  }

 private:
  std::set<CommandKind> kinds_;
  Shape shape_;
  Random random_{3};
};

Fault aborted(const DriveCommand& /*command*/, uint32_t blocksDone) { return {.blocksDone = blocksDone}; }

/// The drive says where it stopped.
Fault stoppedAtBlock(const DriveCommand& command, uint32_t blocksDone) {
  const bool writes = changesMedium(command.kind);
  return {.blocksDone = blocksDone,
          .sense = writes ? sense::writeError : sense::unrecoveredRead,
          .failingLba = command.lba + uint64_t{blocksDone} * command.lbaStep};
}

/// The drive names the first block of the physical one that it could not write, which is not the command's.
Fault stoppedAtMediaBlock(const DriveCommand& command, uint32_t /*blocksDone*/) {
  constexpr uint64_t logicalPerMediaBlock = 8;
  return {.sense = sense::writeError, .failingLba = command.lba / logicalPerMediaBlock * logicalPerMediaBlock};
}

Fault brokenElectronics(const DriveCommand& /*command*/, uint32_t blocksDone) {
  return {.blocksDone = blocksDone, .sense = sense::internalFailure};
}

Fault speechless(const DriveCommand& /*command*/, uint32_t blocksDone) {
  return {.blocksDone = blocksDone, .sense = sense::internalFailure, .withoutSenseData = true};
}

const std::set<CommandKind> reads{CommandKind::read, CommandKind::verify};
const std::set<CommandKind> writes{CommandKind::write, CommandKind::writeAtomic, CommandKind::writeSame,
                                   CommandKind::trim};

TEST(AbortedReads, AreNotHeldAgainstTheDrive) {
  const Workspace workspace;
  expectSilence(runWith(shortTest(workspace, everyKind), NowAndThen(reads, aborted)));
}

TEST(AbortedReads, OfUnknownContentLetTheAtomicWriteWait) {
  const Workspace workspace;
  expectSilence(runWith(shortTest(workspace, atomicOnly), NowAndThen(reads, aborted)));
}

TEST(AbortedReads, ThatCheckForASpliceHaveNothingToPayARepetitionWith) {
  const Workspace workspace;
  TestDefinition test = shortTest(workspace, readWrite);
  test.agentOptions.push_back(splice);
  // Every write is aborted, and the first read, which sees whether one of them left its blocks readable.
  const RunResult result = runWith(test, [](const DriveCommand&) { return std::optional(Fault{}); });
  EXPECT_EQ(result.drives.at(0).agentStatus, -1003);
  EXPECT_THAT(result.drives.at(0).error, StartsWith("doARead(): "));
  EXPECT_EQ(result.status, RunStatus::internal) << "no finding about the drive";
}

TEST(FailedReads, AreNotHeldAgainstTheDrive) {
  const Workspace workspace;
  expectSilence(runWith(shortTest(workspace, readWrite), NowAndThen(reads, stoppedAtBlock)));
}

TEST(FailedReads, OfUnknownContentAreNotHeldAgainstTheDrive) {
  const Workspace workspace;
  expectSilence(runWith(shortTest(workspace, atomicOnly), NowAndThen(reads, stoppedAtBlock)));
}

struct FailedWrite {
  std::string name;
  Fault (*shape)(const DriveCommand&, uint32_t);
};

void PrintTo(const FailedWrite& failed, std::ostream* out) { *out << failed.name; }

class FailedWrites : public testing::TestWithParam<FailedWrite> {
 protected:
  Workspace workspace_;
  NowAndThen judge_{writes, GetParam().shape};
};

TEST_P(FailedWrites, RaiseNothing) { expectSilence(runWith(shortTest(workspace_, everyKind), judge_)); }

TEST_P(FailedWrites, RaiseNothingWhenLookedThroughForSplices) {
  TestDefinition test = shortTest(workspace_, readVerify);
  test.agentOptions.push_back(splice);
  expectSilence(runWith(test, judge_));
}

TEST_P(FailedWrites, RaiseNothingWhenNobodyLooksAtSenseData) {
  TestDefinition test = shortTest(workspace_, readWrite);
  test.deviceInterface = 1;
  expectSilence(runWith(test, judge_));
}

INSTANTIATE_TEST_SUITE_P(Every, FailedWrites,
                         testing::Values(FailedWrite{"Aborted", aborted}, FailedWrite{"StoppedAtBlock", stoppedAtBlock},
                                         FailedWrite{"StoppedAtMediaBlock", stoppedAtMediaBlock},
                                         FailedWrite{"BrokenElectronics", brokenElectronics},
                                         FailedWrite{"Speechless", speechless}),
                         [](const auto& test) { return test.param.name; });

TEST(LinkedReads, FollowTheirWriteWhileItIsOutstanding) {
  const Workspace workspace;
  TestDefinition test = shortTest(workspace, readWrite);
  test.agentOptions = {{"Min Queue Size", "1"}, {"Max Queue Size", "2"}, splice};
  const RunResult result = runWith(test, NowAndThen(writes, aborted));
  expectSilence(result);
  EXPECT_GT(result.totals().heldBack, 1000U) << "reads that waited for their write";
}

/// Aborted writes that leave their blocks unreadable until they are written again.
class Torn {
 public:
  explicit Torn(uint16_t unitErrorCode) : unitErrorCode_(unitErrorCode) {}

  std::optional<Fault> operator()(const DriveCommand& command) {
    const bool tears = command.kind == CommandKind::write && ++writes_ % 50 == 0;
    bool unreadable = false;
    for (uint64_t lba = command.lba; lba < command.endLba(); ++lba) {
      if (tears) {
        torn_.insert(lba);
      } else if (command.kind == CommandKind::write) {
        torn_.erase(lba);
      }
      unreadable = unreadable || torn_.count(lba) != 0;
    }
    if (tears) {
      return Fault{};
    }
    if (command.kind == CommandKind::read && unreadable) {
      return Fault{.sense = sense::unrecoveredRead, .unitErrorCode = unitErrorCode_};
    }
    return std::nullopt;
  }

 private:
  uint16_t unitErrorCode_;
  uint64_t writes_ = 0;
  std::set<uint64_t> torn_;
};

TEST(Splices, AreFound) {
  const Workspace workspace;
  TestDefinition test = shortTest(workspace, readWrite);
  test.agentOptions.push_back(splice);
  const RunResult result = runWith(test, Torn(0x1234));
  const DriveResult& drive = result.drives.at(0);
  EXPECT_EQ(drive.agentStatus, -1062) << agentLines(result);
  EXPECT_THAT(drive.error, StartsWith("Write Splice Detected at LBA 0x"));
  ASSERT_EQ(drive.messages.reports.size(), 1U);
  const std::string report = contentOf(drive.messages.reports[0]);
  EXPECT_THAT(report, HasSubstr("Write Splice  "));
  EXPECT_THAT(report, HasSubstr("0x1234  031100"));
}

TEST(Splices, AreNotSeenInWhatOtherCausesMadeUnreadable) {
  const Workspace workspace;
  TestDefinition test = shortTest(workspace, readWrite);
  test.agentOptions.push_back(splice);
  expectSilence(runWith(test, Torn(0xF815)));
}

/// Half of its blocks, all of one segment, have reached the medium.
class TornAtomicWrite : public testing::TestWithParam<std::pair<const char*, Fault>> {};

TEST_P(TornAtomicWrite, IsFound) {
  const Workspace workspace;
  TestDefinition test = shortTest(workspace, {.write = 1, .writeAtomic = 1, .read = 1});
  // So small that now and then a torn write is over blocks whose last content is still remembered.
  test.driveAddresses = {"sim:1m"};
  test.minBlocks = 4;
  test.maxBlocks = 4;
  test.minAtomicBound = 4;
  uint64_t atomicWrites = 0;
  const auto judge = [&](const DriveCommand& command) -> std::optional<Fault> {
    constexpr uint64_t oneIn = 10;
    const bool tears = command.kind == CommandKind::writeAtomic && ++atomicWrites % oneIn == 0;
    return tears ? std::optional(GetParam().second) : std::nullopt;
  };
  const RunResult result = runWith(test, judge);
  EXPECT_EQ(result.drives.at(0).agentStatus, -1063) << agentLines(result);
  ASSERT_EQ(result.findings.size(), 1U);
  EXPECT_THAT(contentOf(result.drives.at(0).messages.reports.at(0)), HasSubstr("atomic data ordering failure"));
}

INSTANTIATE_TEST_SUITE_P(Every, TornAtomicWrite,
                         testing::Values(std::pair("FirstBlocksNew", Fault{.blocksDone = 2}),
                                         std::pair("LaterBlocksNew", Fault{.blocksLeftOut = 2, .blocksDone = 2})),
                         [](const auto& test) { return test.param.first; });

TEST(UnknownContent, MustStayBelowAnAbortedAtomicWrite) {
  const Workspace workspace;
  TestDefinition test = shortTest(workspace, atomicOnly);
  bool done = false;
  const RunResult result = runTest(test, [&](std::unique_ptr<Drive> drive) {
    const std::shared_ptr<MediumAccess> medium = accessSim(*drive);
    return std::make_unique<FailingDrive>(std::move(drive),
                                          [&done, medium](const DriveCommand& command) -> std::optional<Fault> {
                                            if (command.kind != CommandKind::writeAtomic || done) {
                                              return std::nullopt;
                                            }
                                            // The first write of all: the drive's content was not known, so the agent
                                            // has read it.
                                            std::vector<uint8_t> block = medium->read(command.lba);
                                            block.at(0) ^= 1;
                                            medium->write(command.lba, block);
                                            done = true;
                                            return Fault{};
                                          });
  });
  EXPECT_TRUE(done);
  EXPECT_EQ(result.drives.at(0).agentStatus, -1046) << agentLines(result);
}

TEST(Verify, FindsASpoiltBlock) {
  const Workspace workspace;
  TestDefinition test = shortTest(workspace, {.write = 1, .read = 0, .verify = 1});
  uint64_t verifies = 0;
  uint64_t spoilt = 0;
  const RunResult result = runTest(test, [&](std::unique_ptr<Drive> drive) {
    const std::shared_ptr<MediumAccess> medium = accessSim(*drive);
    return std::make_unique<FailingDrive>(
        std::move(drive), [&verifies, &spoilt, medium](const DriveCommand& command) -> std::optional<Fault> {
          constexpr uint64_t struck = 200;
          if (command.kind == CommandKind::verify && ++verifies == struck) {
            std::vector<uint8_t> block = medium->read(command.lba);
            block.at(100) ^= 1;
            medium->write(command.lba, block);
            spoilt = command.lba;
          }
          return std::nullopt;
        });
  });
  const DriveResult& drive = result.drives.at(0);
  EXPECT_EQ(drive.agentStatus, -1046) << agentLines(result);
  std::array<char, 80> announcement{};
  std::snprintf(announcement.data(), announcement.size(), "Miscompare Detected with a Verify command at LBA 0x%016llX",
                static_cast<unsigned long long>(spoilt));
  EXPECT_THAT(drive.error, StartsWith(announcement.data()));
}

}  // namespace
}  // namespace corvane::host::e2e
