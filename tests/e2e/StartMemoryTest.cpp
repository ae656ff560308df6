// Memory that runs out somewhere between the making of a test and its first commands: each allocation fails once.

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <new>
#include <optional>
#include <set>

#include "host/cli/ExitStatus.h"
#include "host/cli/Program.h"
#include "host/run/TestRun.h"
#include "tests/support/TempFolder.h"

namespace {

std::atomic<uint64_t> countdown{0};  ///< the allocation that fails when it comes to 0; 0: none
std::atomic<uint64_t> failures{0};
std::atomic<int64_t> living{0};

constexpr auto anyAlignment = static_cast<std::align_val_t>(alignof(std::max_align_t));

bool mustFail() noexcept {
  uint64_t left = countdown.load();
  while (left != 0 && !countdown.compare_exchange_weak(left, left - 1)) {
  }
  if (left != 1) {
    return false;
  }
  failures.fetch_add(1);
  return true;
}

void* getOrNull(std::size_t bytes, std::align_val_t alignment = anyAlignment) noexcept {
  if (mustFail()) {
    return nullptr;
  }
  living.fetch_add(1);
  const auto align = static_cast<std::size_t>(alignment);
  return std::aligned_alloc(align, (std::max<std::size_t>(bytes, 1) + align - 1) / align * align);
}

void* getOrThrow(std::size_t bytes, std::align_val_t alignment = anyAlignment) {
  void* memory = getOrNull(bytes, alignment);
  if (memory == nullptr) {
    throw std::bad_alloc();
  }
  return memory;
}

void giveBack(void* memory) noexcept {
  living.fetch_sub(memory != nullptr ? 1 : 0);
  std::free(memory);
}

}  // namespace

// Those of the agent's library, too, as the program's are found first.
#define CORVANE_SHOWN __attribute__((visibility("default")))
CORVANE_SHOWN void* operator new(std::size_t bytes) { return getOrThrow(bytes); }
CORVANE_SHOWN void* operator new[](std::size_t bytes) { return getOrThrow(bytes); }
CORVANE_SHOWN void* operator new(std::size_t bytes, const std::nothrow_t&) noexcept { return getOrNull(bytes); }
CORVANE_SHOWN void* operator new[](std::size_t bytes, const std::nothrow_t&) noexcept { return getOrNull(bytes); }
CORVANE_SHOWN void* operator new(std::size_t bytes, std::align_val_t alignment) { return getOrThrow(bytes, alignment); }
CORVANE_SHOWN void* operator new(std::size_t bytes, std::align_val_t alignment, const std::nothrow_t&) noexcept {
  return getOrNull(bytes, alignment);
}
CORVANE_SHOWN void operator delete(void* memory, std::align_val_t) noexcept { giveBack(memory); }
CORVANE_SHOWN void operator delete(void* memory, std::size_t, std::align_val_t) noexcept { giveBack(memory); }
CORVANE_SHOWN void operator delete(void* memory, std::align_val_t, const std::nothrow_t&) noexcept { giveBack(memory); }
CORVANE_SHOWN void operator delete(void* memory) noexcept { giveBack(memory); }
CORVANE_SHOWN void operator delete[](void* memory) noexcept { giveBack(memory); }
CORVANE_SHOWN void operator delete(void* memory, std::size_t) noexcept { giveBack(memory); }
CORVANE_SHOWN void operator delete[](void* memory, std::size_t) noexcept { giveBack(memory); }
CORVANE_SHOWN void operator delete(void* memory, const std::nothrow_t&) noexcept { giveBack(memory); }
CORVANE_SHOWN void operator delete[](void* memory, const std::nothrow_t&) noexcept { giveBack(memory); }

namespace corvane::host::e2e {
namespace {

using Workspace = tests::TempFolder;
using ::testing::AnyOf;
using ::testing::HasSubstr;

/// Lets one allocation of the process fail while it lives.
class Shortage {
 public:
  explicit Shortage(uint64_t number) {
    failures = 0;
    countdown = number;
  }
  ~Shortage() { countdown = 0; }
  Shortage(const Shortage&) = delete;
  Shortage& operator=(const Shortage&) = delete;

  /// Ends it; whether one failed.
  static bool end() {
    countdown = 0;
    return failures != 0;
  }
};

const auto saysOutOfMemory = AnyOf(HasSubstr("out of memory"), HasSubstr("Could not allocate"),
                                   HasSubstr("Failed memory allocation"), HasSubstr("Cannot allocate memory"));

TestDefinition shortTest(const Workspace& workspace) {
  TestDefinition test;
  test.pluginPath = CORVANE_AGENT_PATH;
  test.outputDirectory = workspace / "output";
  test.driveAddresses = {"sim:1m"};
  test.queueDepth = 4;
  test.commandLimit = 30;
  test.journalDepth = 256;
  test.agentOptions = {
      {"Bucket Count", "64"}, {"Trace Depth", "100"}, {"Min Queue Size", "4"}, {"Max Queue Size", "8"}};
  return test;
}

/// The agent leaves out an event that it has no memory for, and says so when its read-back is due.
constexpr const char* eventLeftOut = "no record or no matching event (-1003)";

/// How a test ended: the text of what was thrown or of the drive's error, and the status of a test that ran.
struct End {
  std::string text;
  std::optional<RunStatus> status;
};

End runWithout(const TestDefinition& test, uint64_t allocation, bool& failed) {
  End end;
  const Shortage shortage(allocation);
  try {
    TestRun run(test);
    const RunResult result = run.run();
    failed = Shortage::end();
    end.status = result.status;
    end.text = result.drives.at(0).error;
  } catch (const std::bad_alloc&) {
    failed = Shortage::end();
    end.text = "out of memory";
  } catch (const std::exception& error) {
    failed = Shortage::end();
    end.text = error.what();
  }
  return end;
}

TEST(StartMemory, EveryAllocationOfATestThatBeginsMayFail) {
  const Workspace workspace;
  const TestDefinition test = shortTest(workspace);
  constexpr uint64_t more = 100'000;
  bool failed = false;
  ASSERT_EQ(runWithout(test, 0, failed).status, RunStatus::clean);
  uint64_t refused = 0;
  uint64_t number = 0;
  do {
    ++number;
    const int64_t before = living;
    ::testing::internal::CaptureStderr();
    const int64_t withCapture = living;
    const End end = runWithout(test, number, failed);
    const int64_t after = living - (end.text.capacity() > 15 ? 1 : 0);
    ::testing::internal::GetCapturedStderr();
    EXPECT_EQ(after, withCapture) << "allocation " << number << " leaks: " << end.text << " " << before;
    if (!failed) {
      EXPECT_EQ(end.status, RunStatus::clean) << end.text;
    } else if (end.status != RunStatus::clean) {
      EXPECT_THAT(end.text, AnyOf(saysOutOfMemory, HasSubstr(eventLeftOut))) << "allocation " << number;
      EXPECT_EQ(end.status.value_or(RunStatus::internal), RunStatus::internal) << "allocation " << number;
      ++refused;
    }
  } while (failed && number < more);
  EXPECT_FALSE(failed);
  EXPECT_GT(refused, 100U);
  RecordProperty("allocations", static_cast<int>(number - 1));
}

/// One `corvane run` in this process, of which an allocation fails.
struct Command {
  int status = 0;
  std::string said;
  bool failed = false;
};

constexpr int nothingFailed = 100;  ///< added to the status of a command of which no allocation failed

Command runCommandWithout(const Workspace& workspace, uint64_t allocation) {
  const std::string output = workspace / "out";
  const std::string plugin = CORVANE_AGENT_PATH;
  const std::vector<const char*> words{"corvane",       "run",
                                       "--drive",       "sim:1m",
                                       "--commands",    "30",
                                       "--seed",        "1",
                                       "--queue-depth", "4",
                                       "--plugin",      plugin.c_str(),
                                       "--output",      output.c_str(),
                                       "--set",         "Bucket Count=64",
                                       "--set",         "Trace Depth=100",
                                       "--set",         "Max Queue Size=8",
                                       "--set",         "Min Queue Size=4"};
  // In a process of its own, which may also end in the middle.
  const std::string said = workspace / "said";
  const pid_t child = fork();
  if (child == 0) {
    const int file = open(said.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
    dup2(file, STDOUT_FILENO);
    dup2(file, STDERR_FILENO);
    const Shortage shortage(allocation);
    const int status = runProgram(static_cast<int>(words.size()), words.data());
    const bool failed = Shortage::end();
    std::fflush(stdout);
    _exit(status + (failed || allocation == 0 ? 0 : nothingFailed));
  }
  int end = 0;
  waitpid(child, &end, 0);
  const int status = WIFEXITED(end) ? WEXITSTATUS(end) : -WTERMSIG(end);
  Command command{.status = status, .said = tests::readFile(said), .failed = status < nothingFailed};
  command.status -= command.failed ? 0 : nothingFailed;
  return command;
}

TEST(StartMemory, ACommandLineThatRunsOutOfItSaysSoAndEndsWithTheStatusOfAnInternalError) {
  const Workspace workspace;
  const Command good = runCommandWithout(workspace, 0);
  ASSERT_EQ(good.status, exit_status::clean) << good.said;
  constexpr uint64_t everyOneUpTo = 50;
  constexpr uint64_t stride = 13;
  uint64_t refused = 0;
  Command command;
  uint64_t number = 0;
  do {
    number += number < everyOneUpTo ? 1 : stride;
    command = runCommandWithout(workspace, number);
    if (command.failed && command.status != exit_status::clean) {
      EXPECT_EQ(command.status, exit_status::internal) << "allocation " << number << ": " << command.said;
      EXPECT_THAT(command.said, AnyOf(saysOutOfMemory, HasSubstr(eventLeftOut))) << "allocation " << number;
      ++refused;
    }
  } while (command.failed);
  EXPECT_EQ(command.status, exit_status::clean) << command.said;
  EXPECT_GT(refused, 100U);
  RecordProperty("allocations", static_cast<int>(number));
}

}  // namespace
}  // namespace corvane::host::e2e
