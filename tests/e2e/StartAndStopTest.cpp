// Tests that begin and end, in every way in which one ends, while others go on in the same process; and what they leave
// in the folder that they share.
#include <dlfcn.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <filesystem>
#include <limits>
#include <memory>
#include <mutex>
#include <set>
#include <sstream>
#include <thread>
#include <vector>

#include "host/drive/DriveFactory.h"
#include "host/run/ConfigurationError.h"
#include "tests/e2e/EndToEnd.h"
#include "tests/e2e/HangingDrive.h"

namespace corvane::host::e2e {
namespace {

/// The ways in which a test ends.
enum class Ending : uint8_t { commands, steps, time, request, finding, hang, refusal };
constexpr size_t endings = 7;

constexpr uint64_t all = std::numeric_limits<uint64_t>::max();

RunStatus statusOf(Ending ending) {
  return ending == Ending::finding ? RunStatus::dataFailure
         : ending == Ending::hang  ? RunStatus::drive
                                   : RunStatus::clean;
}

/// With drives of the same names, and reports in the same folder, whoever runs it.
TestDefinition shortTest(Ending ending, uint64_t seed, const Workspace& workspace) {
  TestDefinition test = prepared({}, workspace);
  test.driveAddresses = {"sim:2m", "sim:2m,block=4096"};
  test.mix = {.write = 2, .writeAtomic = 1, .trim = 1, .read = 2, .verify = 1};
  test.seed = seed;
  test.queueDepth = 8;
  test.agentOptions = {
      {"Bucket Count", "1024"}, {"Min Queue Size", "40"}, {"Max Queue Size", "80"}, {"Always Dump Sequence", "true"}};
  switch (ending) {
    case Ending::commands:
      test.commandLimit = 300;
      break;
    case Ending::steps:
      test.stepLimit = 300;
      break;
    case Ending::time:
      test.timeLimitMs = 20;
      break;
    case Ending::finding:
      test.mix = {};
      test.faults = {parseFaultSpec("lost-write:at=command:20,most=100")};
      break;
    case Ending::hang:
      test.watchdogMs = 100;
      break;
    case Ending::refusal:
      test.agentOptions.emplace_back("Use Skip Commands", "true");
      break;
    case Ending::request:
      break;
  }
  return test;
}

/// Looks at a test all the time, from a thread of its own: what was told once must stay so.
class Onlooker {
 public:
  /// @param asksForEnd it ends the test as soon as every drive is at work
  Onlooker(TestRun& run, bool asksForEnd)
      : thread_([this, &run, asksForEnd](const std::stop_token& stop) {
          for (bool asks = asksForEnd; !stop.stop_requested(); std::this_thread::yield()) {
            look(run.progress());
            if (asks && leastIssued() >= 100) {
              run.requestStop();
              asks = false;
            }
          }
        }) {}

 private:
  void look(ProgressSnapshot now) {
    for (size_t drive = 0; drive < last_.drives.size(); ++drive) {
      const DriveProgress& before = last_.drives[drive];
      EXPECT_GE(now.drives[drive].totals.commandsIssued(), before.totals.commandsIssued());
      EXPECT_GE(now.drives[drive].totals.blocksCompared, before.totals.blocksCompared);
      if (before.ended) {
        EXPECT_TRUE(now.drives[drive].ended);
        EXPECT_EQ(now.drives[drive].status, before.status);
      }
    }
    last_ = std::move(now);
  }
  uint64_t leastIssued() const {
    uint64_t least = all;
    for (const DriveProgress& drive : last_.drives) {
      least = std::min(least, drive.totals.commandsIssued());
    }
    return least;
  }

  ProgressSnapshot last_;
  std::jthread thread_;  // last: it uses the others
};

/// Runs one short test, from the loading of the agent to its unloading.
///
/// @return nothing of a test that was refused
RunResult runToItsEnd(Ending ending, uint64_t seed, const Workspace& workspace) {
  RunSurroundings world;
  if (ending == Ending::hang) {
    world.openDrive = [](std::string_view address, uint32_t most, uint64_t driveSeed, Overwriting overwriting) {
      return std::make_unique<HangingDrive>(openDrive(address, most, driveSeed, overwriting),
                                            Hang{.after = 50, .commands = all}, std::make_shared<HangRecord>());
    };
  }
  try {
    TestRun run(shortTest(ending, seed, workspace), nullptr, world);
    const Onlooker onlooker(run, ending == Ending::request);
    return run.run();
  } catch (const ConfigurationError&) {
    return {};
  }
}

/// Files that several tests left: each of them whole, and of one test alone.
class LeftFiles {
 public:
  void add(const RunResult& result) {
    for (const DriveResult& drive : result.drives) {
      EXPECT_THAT(drive.messages.incomplete, ::testing::IsEmpty());
      for (const std::string& report : drive.messages.reports) {
        addName(report);
        lookAtReport(report, drive);
      }
      for (const std::string& dump : drive.messages.dumps) {
        addName(dump);
        EXPECT_EQ(std::filesystem::file_size(dump), drive.name.starts_with("sim1") ? 4096U : 512U) << dump;
      }
    }
  }
  size_t count() const { return names_.size(); }

 private:
  void addName(const std::string& path) { EXPECT_TRUE(names_.insert(path).second) << path << " was given out twice"; }

  /// The whole sequence is numbered from 0; after a finding what is about its block stands before that.
  static void lookAtReport(const std::string& path, const DriveResult& drive) {
    const std::string text = contentOf(path);
    if (drive.status == RunStatus::dataFailure && drive.findingLba) {
      std::array<char, 64> lba{};
      std::snprintf(lba.data(), lba.size(), "the miscompare LBA 0x%016lX:", *drive.findingLba);
      EXPECT_THAT(text, ::testing::HasSubstr(lba.data())) << path;
    }
    const size_t whole = text.find("Dump of the full command sequence:");
    if (whole == std::string::npos) {
      EXPECT_EQ(drive.status, RunStatus::dataFailure) << path;
      return;
    }
    std::istringstream lines(text.substr(whole));
    unsigned next = 0;
    for (std::string line; std::getline(lines, line);) {
      unsigned index = 0;
      if (line.size() > 6 && std::sscanf(line.c_str(), "%6u  ", &index) == 1) {
        ASSERT_EQ(index, next) << path << " is torn: " << line;
        ++next;
      }
    }
    EXPECT_GT(next, 0U) << path;
  }

  std::set<std::string> names_;
};

/// A test without an end on several drives, that nobody else must disturb.
class GoingOn {
 public:
  explicit GoingOn(const Workspace& workspace) {
    TestDefinition test = prepared({}, workspace);
    test.driveAddresses = {"sim:8m", "sim:8m,block=4096", "file:" + (workspace / "going.img") + ",size=8m"};
    test.mix = {.write = 2, .writeAtomic = 1, .writeSame = 1, .trim = 1, .read = 2, .verify = 1};
    test.resetEveryCommands = 1000;
    test.agentOptions = {{"Write Splice Detection", "true"},
                         {"Bucket Count", "2048"},
                         {"Min Queue Size", "100"},
                         {"Max Queue Size", "200"}};
    run_ = std::make_unique<TestRun>(test);
    thread_ = std::jthread([this] { result_ = run_->run(); });
  }

  uint64_t leastIssued() const {
    uint64_t least = all;
    for (const DriveProgress& drive : run_->progress().drives) {
      least = std::min(least, drive.totals.commandsIssued());
    }
    return least;
  }
  const RunResult& end() {
    run_->requestStop();
    thread_.join();
    return result_;
  }

 private:
  std::unique_ptr<TestRun> run_;
  RunResult result_;
  std::jthread thread_;  // last: it uses the others
};

bool agentIsLoaded() {
  void* handle = dlopen(agentPath().c_str(), RTLD_NOW | RTLD_NOLOAD);
  if (handle != nullptr) {
    dlclose(handle);
  }
  return handle != nullptr;
}

TEST(StartAndStop, OfSomeTestsLeavesOthersAndTheirFilesAlone) {
  constexpr size_t starters = 4;
  const bool loadedBefore = agentIsLoaded();  // by the thread of a drive that hangs for good
  const Workspace workspace;
  LeftFiles files;
  {
    GoingOn others(workspace);
    std::mutex looking;
    {
      std::vector<std::jthread> threads;
      for (size_t starter = 0; starter < starters; ++starter) {
        threads.emplace_back([&, starter] {
          for (size_t round = 0; round < endings; ++round) {
            // Nobody begins with the same one, and everybody comes to each of them.
            const auto ending = static_cast<Ending>((starter * 2 + round) % endings);
            const RunResult result = runToItsEnd(ending, starter * endings + round + 1, workspace);
            const std::lock_guard lock(looking);
            SCOPED_TRACE("ending " + std::to_string(static_cast<int>(ending)) + "\n" + agentLines(result));
            EXPECT_EQ(result.drives.size(), ending == Ending::refusal ? 0U : 2U);
            for (const DriveResult& drive : result.drives) {
              EXPECT_EQ(drive.status, statusOf(ending));
            }
            EXPECT_EQ(result.stopped, ending == Ending::request);
            files.add(result);
          }
        });
      }
    }
    const uint64_t before = others.leastIssued();
    while (others.leastIssued() <= before + 100) {
      std::this_thread::yield();
    }
    const RunResult& result = others.end();
    EXPECT_EQ(result.status, RunStatus::clean) << agentLines(result);
    EXPECT_TRUE(result.stopped);
    for (const DriveResult& drive : result.drives) {
      EXPECT_EQ(drive.messages.warnings + drive.messages.errors, 0U) << drive.name;
      EXPECT_GT(drive.totals.blocksCompared, 0U) << drive.name;
    }
  }
  EXPECT_GE(files.count(), starters * 2 * (endings - 1)) << "a report of each drive of each test that began";
  EXPECT_EQ(agentIsLoaded(), loadedBefore) << "whoever is the last unloads it";
}

/// Two of eight drives never come back from their reset, and keep their threads.
TEST(StartAndStop, DrivesThatHangEndAloneAmongEight) {
  const Workspace workspace;
  TestDefinition test = prepared({}, workspace);
  test.driveAddresses.assign(8, "sim:8m");
  test.commandLimit = 3000;
  test.watchdogMs = 1000;
  test.agentOptions = {{"Write Splice Detection", "true"},
                       {"Bucket Count", "2048"},
                       {"Min Queue Size", "100"},
                       {"Max Queue Size", "200"}};
  size_t opened = 0;
  const RunResult result = runTest(test, [&](std::unique_ptr<Drive> drive) -> std::unique_ptr<Drive> {
    const size_t number = opened++;
    const Hang hang{.after = number % 4 == 1 ? 500 : all, .commands = all, .reset = Hang::Reset::hangs};
    return std::make_unique<HangingDrive>(std::move(drive), hang, std::make_shared<HangRecord>());
  });
  EXPECT_EQ(result.status, RunStatus::drive);
  ASSERT_EQ(result.drives.size(), 8U);
  for (size_t number = 0; number < 8; ++number) {
    const DriveResult& drive = result.drives[number];
    const bool hangs = number % 4 == 1;
    EXPECT_EQ(drive.status, hangs ? RunStatus::drive : RunStatus::clean) << drive.name << ": " << drive.error;
    EXPECT_EQ(drive.totals.commandsIssued() >= test.commandLimit, !hangs) << drive.name;
    EXPECT_EQ(drive.error.find("a reset of the drive has not ended for ") != std::string::npos, hangs) << drive.error;
  }
}

}  // namespace
}  // namespace corvane::host::e2e
