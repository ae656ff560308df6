// What the built agent does beside commands and compares: stopping a drive that failed, power cuts, its reports.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>

#include "host/base/BigEndian.h"
#include "tests/e2e/AgentWithDevice.h"
#include "tests/e2e/EndToEnd.h"
#include "tests/e2e/FailingDrive.h"
#include "tests/e2e/SpoilingDrive.h"

namespace corvane::host::e2e {
namespace {

using testing::AllOf;
using testing::Contains;
using testing::Each;
using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::SizeIs;
using testing::StartsWith;

constexpr uint64_t readsBeforeSpoil = 500;

/// A test that ends with a miscompare of one flipped byte.
class Spoilt : public testing::Test {
 protected:
  Spoilt() {
    test = prepared({}, workspace);
    test.driveAddresses = {"sim:1m"};
    test.commandLimit = 20'000;
    test.agentOptions = {{"Min Queue Size", "64"}, {"Max Queue Size", "512"}};
  }

  RunResult run(const vdl::AgentTable* agent = nullptr) {
    record = {};
    RunResult result = runTest(
        test,
        [this](std::unique_ptr<Drive> drive) {
          auto access = accessSim(*drive);
          return std::make_unique<SpoilingDrive>(std::move(drive), std::move(access), Spoil::flippedByte,
                                                 readsBeforeSpoil, record);
        },
        agent);
    EXPECT_EQ(result.drives.at(0).agentStatus, -1046) << agentLines(result);
    return result;
  }

  static std::vector<std::string> textsOf(const RunResult& result) {
    std::vector<std::string> texts;
    for (const AgentMessages::Line& line : result.drives.at(0).messages.lines) {
      texts.push_back(line.text);
    }
    return texts;
  }

  Workspace workspace;
  TestDefinition test;
  SpoilingDrive::Record record;
};

/// Writes down what it is asked.
class RecordingDevice : public VendorDevice {
 public:
  int readShowstopSetting(uint32_t& value) override {
    calls.emplace_back("read setting");
    value = setting;
    return 0;
  }
  int writeShowstopSetting(uint32_t value) override {
    calls.push_back("write setting " + std::to_string(value));
    setting = value;
    return 0;
  }
  int sendRequest(const uint8_t* block, uint32_t bytes) override {
    calls.push_back("send under setting " + std::to_string(setting));
    request.assign(block, block + bytes);
    return 0;
  }
  int reportMiscompare(uint32_t status, uint64_t lba) override {
    calls.push_back("miscompare " + std::to_string(status) + " at " + std::to_string(lba));
    return 0;
  }
  int readDeviceParameter(uint32_t& value) override {
    value = 0;
    return 0;
  }

  uint32_t setting = 7;
  std::vector<std::string> calls;
  std::vector<uint8_t> request;
};

class Showstop : public Spoilt {
 protected:
  Showstop() { test.agentOptions.emplace_back("Showstop on Miscompare", "true"); }
};

TEST_F(Showstop, StopsTheAttachedDriveAndNamesTheBlock) {
  RecordingDevice device;
  const AgentWithDevice agent(&device);
  const RunResult result = run(&agent.table());
  EXPECT_THAT(device.calls, ElementsAre("read setting", "write setting 1", "send under setting 1", "write setting 7",
                                        "miscompare 0 at " + std::to_string(record.lba)));
  ASSERT_THAT(device.request, SizeIs(112));
  constexpr size_t descriptorOffset = 24;
  EXPECT_EQ(device.request[descriptorOffset], 0xC0);
  EXPECT_EQ(device.request[descriptorOffset + 1], 0x81);
  EXPECT_THAT(textsOf(result), Not(Contains(HasSubstr("Showstop"))));
}

TEST_F(Showstop, IsSaidToHaveFailedWhenTheDriveDoesNotKnowIt) {
  VendorDevice device;
  const AgentWithDevice agent(&device);
  EXPECT_THAT(textsOf(run(&agent.table())), Contains("Failed to issue Showstop, ostra err 95"));
}

TEST_F(Showstop, IsSaidToHaveFailedWithoutADevice) {
  const AgentWithDevice agent(nullptr);
  EXPECT_THAT(textsOf(run(&agent.table())), Contains("Failed to issue Showstop, ostra err -1053"));
}

TEST_F(Spoilt, OnlyNamesTheBlockToAnAttachedDrive) {
  RecordingDevice device;
  const AgentWithDevice agent(&device);
  run(&agent.table());
  EXPECT_THAT(device.calls, ElementsAre("miscompare 0 at " + std::to_string(record.lba)));
}

/// Another current folder for as long as it lives.
class CurrentFolder {
 public:
  explicit CurrentFolder(const std::string& path) : before_(std::filesystem::current_path()) {
    std::filesystem::current_path(path);
  }
  ~CurrentFolder() { std::filesystem::current_path(before_); }
  CurrentFolder(const CurrentFolder&) = delete;
  CurrentFolder& operator=(const CurrentFolder&) = delete;

 private:
  std::filesystem::path before_;
};

class Reports : public Spoilt {
 protected:
  void writeTo(const std::string& path) { test.agentOptions.emplace_back("Miscompare Output Path", path); }

  static uint64_t countOf(const std::set<std::string>& names, const std::string& end) {
    return static_cast<uint64_t>(
        std::count_if(names.begin(), names.end(), [&](const std::string& name) { return name.ends_with(end); }));
  }
};

TEST_F(Reports, MakeTheFoldersThatAreMissing) {
  writeTo(workspace / "not/there/yet/found");
  run();
  const std::set<std::string> names = workspace.content();
  EXPECT_THAT(names, AllOf(Contains(StartsWith("not/there/yet/found_trace_")),
                           Contains(StartsWith("not/there/yet/found_drive_")),
                           Contains(StartsWith("not/there/yet/found_reference_"))));
}

TEST_F(Reports, KeepWhatAnEarlierTestFound) {
  run();
  EXPECT_EQ(countOf(workspace.content(), ".bin"), 2U);
  const RunResult second = run();
  const std::set<std::string> names = workspace.content();
  EXPECT_EQ(countOf(names, ".bin"), 2U);
  EXPECT_EQ(countOf(names, ".bin.000"), 2U);
  EXPECT_EQ(countOf(names, ".txt.000"), 1U);
  EXPECT_THAT(second.findings.at(0).files, Each(EndsWith(".000")));
  run();
  EXPECT_EQ(countOf(workspace.content(), ".bin.001"), 2U);
}

TEST_F(Reports, GoToTheCurrentFolderWhenTheirOwnCannotBe) {
  const Workspace elsewhere;
  tests::writeFile(workspace / "file", "no folder");
  writeTo(workspace / "file/below/found");
  const CurrentFolder current(elsewhere.path());
  const RunResult result = run();
  EXPECT_THAT(textsOf(result), Contains("Could not use specifed file path, using temp file instead"));
  EXPECT_THAT(elsewhere.content(), AllOf(SizeIs(3), Contains(StartsWith("found_trace_"))));
}

TEST_F(Reports, ThatCanGoNowhereAreSaidToBeLost) {
  auto gone = std::make_unique<Workspace>();
  tests::writeFile(workspace / "file", "no folder");
  writeTo(workspace / "file/found");
  const CurrentFolder current(gone->path());
  gone.reset();
  const RunResult result = run();
  EXPECT_THAT(textsOf(result),
              AllOf(Contains(HasSubstr("to dump the bucket compare command sequence")),
                    Contains(AllOf(HasSubstr("dumpMiscompareData(): could not open"), HasSubstr("file/found_drive_"))),
                    Contains(HasSubstr("file/found_reference_"))));
  EXPECT_THAT(result.findings.at(0).files, IsEmpty());
}

TEST_F(Reports, MarkCommandsOnTheSameMediaBlock) {
  test.driveAddresses = {"sim:1m,exponent=3"};
  const RunResult result = run();
  const std::string report = contentOf(result.drives.at(0).messages.reports.at(0));
  EXPECT_THAT(report, HasSubstr("* indicates media block overlap"));
  EXPECT_THAT(report, HasSubstr(" *\n"));
}

TestDefinition withSequence(const Workspace& workspace) {
  TestDefinition test = prepared({}, workspace);
  test.driveAddresses = {"sim:8m,cache=volatile"};
  test.commandLimit = 8000;
  test.agentOptions = {{"Min Queue Size", "64"},           {"Max Queue Size", "512"}, {"Always Dump Sequence", "true"},
                       {"Write Splice Detection", "true"}, {"Trace Depth", "20000"},  {"PowerToggle Freq", "1"}};
  return test;
}

uint64_t timesIn(const std::string& text, const std::string& part) {
  uint64_t times = 0;
  for (size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + part.size())) {
    ++times;
  }
  return times;
}

TEST(PowerCuts, AreInTheSequenceWithTheirFlushes) {
  const Workspace workspace;
  TestDefinition test = withSequence(workspace);
  test.powerToggle = PowerToggle::withSync;
  const RunResult result = runTest(test);
  ASSERT_EQ(result.status, RunStatus::clean) << agentLines(result);
  const uint64_t cuts = result.totals().powerCycles;
  EXPECT_GT(cuts, 0U);
  const std::string report = contentOf(result.drives.at(0).messages.reports.at(0));
  EXPECT_THAT(report, HasSubstr("Dump of the full command sequence"));
  EXPECT_EQ(timesIn(report, "Power Toggle Off"), cuts);
  EXPECT_EQ(timesIn(report, "Power Toggle On"), cuts);
  EXPECT_GE(timesIn(report, "Sync Cache Issued"), cuts);
  EXPECT_GE(timesIn(report, "Sync Cache Finished"), cuts);
}

TEST(PowerCuts, WaitForAFlushThatSucceeds) {
  const Workspace workspace;
  TestDefinition test = withSequence(workspace);
  test.powerToggle = PowerToggle::withSync;
  constexpr uint32_t flushesToFail = 3;
  std::optional<uint32_t> failedBeforeFirstCut;
  uint32_t failed = 0;
  const auto judge = [&](const DriveCommand& command) -> std::optional<Fault> {
    if (command.kind != CommandKind::syncCache || failed == flushesToFail) {
      return std::nullopt;
    }
    ++failed;
    return Fault{.sense = sense::internalFailure};
  };
  const auto beforePowerCut = [&] { failedBeforeFirstCut = failedBeforeFirstCut.value_or(failed); };
  const RunResult result = runTest(test, [&](std::unique_ptr<Drive> drive) {
    return std::make_unique<FailingDrive>(std::move(drive), judge, beforePowerCut);
  });
  EXPECT_EQ(result.status, RunStatus::clean) << agentLines(result);
  EXPECT_GT(result.totals().powerCycles, 0U);
  EXPECT_EQ(failedBeforeFirstCut, flushesToFail);
  EXPECT_EQ(timesIn(contentOf(result.drives.at(0).messages.reports.at(0)), "044400"), flushesToFail);
}

TEST(Resets, AreInTheSequenceAsAbortsOfWhatWasOutstanding) {
  const Workspace workspace;
  TestDefinition test = withSequence(workspace);
  test.mix = {.write = 1, .writeAtomic = 1, .read = 1, .verify = 1};
  test.resetEveryCommands = 200;
  const RunResult result = runTest(test);
  ASSERT_EQ(result.status, RunStatus::clean) << agentLines(result);
  EXPECT_GT(result.totals().resets, 0U);
  const std::string report = contentOf(result.drives.at(0).messages.reports.at(0));
  for (const char* kind : {"Write_ABORTED", "Read_ABORTED", "Verify_ABORTED"}) {
    EXPECT_THAT(report, HasSubstr(kind));
  }
}

TEST_F(Spoilt, ASeedOfZeroGivesAnotherTestEachTime) {
  test.agentOptions.emplace_back("Random Seed", "0");
  const std::string first = contentOf(run().drives.at(0).messages.reports.at(0));
  EXPECT_NE(first, contentOf(run().drives.at(0).messages.reports.at(0)));
}

TEST_F(Spoilt, TheOldOptionForStampsStillSwitchesThemOff) {
  test.agentOptions.emplace_back("Embed LBA", "false");
  const RunResult result = run();
  EXPECT_THAT(textsOf(result), Contains(HasSubstr("forcing Embed Data option to disabled")));
  std::vector<uint8_t> stamp(8);
  putBigEndian(stamp.data(), record.lba);
  constexpr std::ptrdiff_t lbaOffset = 8;
  EXPECT_FALSE(std::equal(stamp.begin(), stamp.end(), record.before.begin() + lbaOffset));
}

TEST(SlideReads, DoNotBeginBeforeTheRange) {
  const Workspace workspace;
  TestDefinition test = prepared({}, workspace);
  test.driveAddresses = {"sim:1m"};
  test.firstLba = 40;
  test.endLba = 120;
  test.commandLimit = 6000;
  test.agentOptions = {{"Slide Reads", "true"}, {"Min Queue Size", "4"}, {"Max Queue Size", "16"}};
  uint64_t lowest = test.endLba;
  uint64_t end = 0;
  const auto note = [&](const DriveCommand& command) -> std::optional<Fault> {
    if (command.kind == CommandKind::read) {
      lowest = std::min(lowest, command.lba);
      end = std::max(end, command.endLba());
    }
    return std::nullopt;
  };
  const RunResult result = runTest(
      test, [&](std::unique_ptr<Drive> drive) { return std::make_unique<FailingDrive>(std::move(drive), note); });
  EXPECT_EQ(result.status, RunStatus::clean) << agentLines(result);
  EXPECT_EQ(lowest, test.firstLba);
  EXPECT_LE(end, test.endLba + test.maxBlocks - 1) << "what a host leaves free behind the range";
}

/// The built agent beside another one that announces zone resets whenever it likes, also over outstanding writes.
class AgentWithHastyNeighbour {
 public:
  AgentWithHastyNeighbour() : plugin_(agentPath()), table_(plugin_.table()) {
    agentsExecute = table_.execute;
    table_.execute = &announceAndExecute;
    calls = 0;
  }

  const vdl::AgentTable& table() const { return table_; }

 private:
  static int announceAndExecute(vdl::DriveThread* drive, const void* configData, void* driveData) {
    constexpr uint32_t often = 50;
    constexpr uint64_t everything = 1 << 20;
    if (++calls % often == 0) {
      int error = 0;
      drive->mapLBARangeQueue("CSZoneReset", 5, &error)->push({0, everything});
    }
    return agentsExecute(drive, configData, driveData);
  }

  static inline uint32_t calls = 0;
  static inline int (*agentsExecute)(vdl::DriveThread*, const void*, void*) = nullptr;

  AgentPlugin plugin_;
  vdl::AgentTable table_;
};

TEST(ZoneResets, OverOutstandingWritesGiveTheirReadBacksUp) {
  const Workspace workspace;
  TestDefinition test = prepared({}, workspace);
  test.driveAddresses = {"sim:1m,zones=16k"};
  test.commandLimit = 5000;
  test.zoneResetEveryCommands = 1'000'000;  // so that the agent listens; none comes due
  test.agentOptions = {{"Min Queue Size", "64"}, {"Max Queue Size", "128"}};
  const AgentWithHastyNeighbour agent;
  const RunResult result = runTest(test, {}, &agent.table());
  EXPECT_EQ(result.status, RunStatus::clean) << agentLines(result);
  const DriveTotals totals = result.totals();
  EXPECT_EQ(totals.zoneResets, 0U);
  EXPECT_LT(totals.blocksCompared, totals.blocksWritten / 4) << "most read-backs were given up";
}

}  // namespace
}  // namespace corvane::host::e2e
