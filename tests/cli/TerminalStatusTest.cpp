#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <pty.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdlib>
#include <stdexcept>
#include <string>
#include <vector>

#include "tests/cli/TerminalScreen.h"
#include "tests/support/TempFolder.h"

namespace corvane::host {
namespace {

using ::testing::IsEmpty;
using ::testing::MatchesRegex;
using testing::TerminalScreen;

/// The built program with a terminal of its own.
class TerminalProgram {
 public:
  TerminalProgram(const tests::TempFolder& folder, size_t rows, size_t columns,
                  const std::vector<std::string>& arguments) {
    const winsize size{.ws_row = static_cast<unsigned short>(rows),
                       .ws_col = static_cast<unsigned short>(columns),
                       .ws_xpixel = 0,
                       .ws_ypixel = 0};
    std::vector<char*> argv{const_cast<char*>(CORVANE_BINARY)};
    for (const std::string& argument : arguments) {
      argv.push_back(const_cast<char*>(argument.c_str()));
    }
    argv.push_back(nullptr);
    pid_ = forkpty(&terminal_, nullptr, nullptr, &size);
    if (pid_ < 0) {
      throw std::runtime_error("there is no terminal to be had");
    }
    if (pid_ == 0) {
      setenv("TERM", "xterm", 1);
      unsetenv("NO_COLOR");
      if (chdir(folder.path().c_str()) == 0) {
        execv(argv[0], argv.data());
      }
      _exit(127);
    }
  }
  ~TerminalProgram() { close(terminal_); }
  TerminalProgram(const TerminalProgram&) = delete;
  TerminalProgram& operator=(const TerminalProgram&) = delete;

  /// The next bytes that it sends; empty when it has ended.
  std::string read() const {
    std::array<char, 4096> bytes{};
    const ssize_t got = ::read(terminal_, bytes.data(), bytes.size());
    return {bytes.data(), static_cast<size_t>(got > 0 ? got : 0)};
  }
  void type(char c) const { ASSERT_EQ(write(terminal_, &c, 1), 1); }

  /// The exit status; -1 when a signal ended it.
  int wait() const {
    int status = 0;
    return waitpid(pid_, &status, 0) == pid_ && WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  }

 private:
  int terminal_ = -1;
  pid_t pid_ = -1;
};

TEST(TerminalStatusTest, oneLineADriveIsRedrawnInPlaceUntilCtrlC) {
  constexpr size_t rows = 60;
  constexpr size_t columns = 90;
  constexpr char ctrlC = 3;
  const tests::TempFolder folder;
  const TerminalProgram program(
      folder, rows, columns,
      {"run", "--drive", "sim:64m", "--drive", "sim:64m", "--time", "1h", "--queue-depth", "8", "--output", "out"});
  TerminalScreen screen(rows, columns);
  std::vector<std::string> seen;  // what stood in the first drive's line, one after the other
  std::string second;
  for (std::string bytes = program.read(); !bytes.empty(); bytes = program.read()) {
    for (const char c : bytes) {
      screen.put(c);
      // At no moment does anything else stand there than one line a drive.
      ASSERT_LE(screen.count(" of 8 outstanding"), 2U);
    }
    const size_t first = screen.rowOf("sim0  0:0");
    if (first + 1 < rows && screen.rows()[first].size() == columns - 3 &&
        screen.rows()[first + 1].size() == columns - 3 && (seen.empty() || seen.back() != screen.rows()[first])) {
      seen.push_back(screen.rows()[first]);
      second = screen.rows()[first + 1];
      if (seen.size() == 3) {
        program.type(ctrlC);
      }
    }
  }
  EXPECT_EQ(program.wait(), 0);
  ASSERT_GE(seen.size(), 3U);
  EXPECT_THAT(seen[0], MatchesRegex("sim0  0:0[0-9], (59:59|1:00:00|59:5[0-9]) left  0 findings  [0-8] of 8 outstanding"
                                    "  compared +[0-9.]+ MB/s.*"));
  EXPECT_THAT(second, MatchesRegex("sim1  0:0[0-9], .* left  0 findings  [0-8] of 8 outstanding  compared .*"));
  EXPECT_THAT(screen.unknown(), IsEmpty());
  EXPECT_EQ(screen.count(" of 8 outstanding"), 0U) << "the status goes when the test is over";
  EXPECT_EQ(screen.count("SIGINT: no further commands are sent"), 1U);
  EXPECT_LT(screen.rowOf("Test: write,read"), screen.rowOf("SIGINT: no further"));
  EXPECT_LT(screen.rowOf("SIGINT: no further"), screen.rowOf("Drive sim0: clean"));
  EXPECT_EQ(screen.count("Result: clean, nothing found"), 1U);
}

/// Each drive's thread may break into the status of all of them.
TEST(TerminalStatusTest, findingsOfEightDrivesStandInWholeLinesAboveTheStatus) {
  constexpr size_t rows = 500;
  constexpr size_t columns = 200;
  constexpr size_t drives = 8;
  constexpr char ctrlC = 3;
  const tests::TempFolder folder;
  std::vector<std::string> words{"run", "--time", "1h", "--rate", "400", "--queue-depth", "8", "--output", "out"};
  for (size_t drive = 1; drive <= drives; ++drive) {
    words.insert(words.end(), {"--drive", "sim:8m"});
    if (drive % 3 == 1) {
      words.insert(words.end(), {"--fault", "lost-write:at=command:300,most=500,drive=" + std::to_string(drive)});
    }
  }
  for (const char* option : {"Bucket Count=2048", "Min Queue Size=40", "Max Queue Size=80"}) {
    words.insert(words.end(), {"--set", option});
  }
  const TerminalProgram program(folder, rows, columns, words);
  TerminalScreen screen(rows, columns);
  bool stopped = false;
  size_t mostRunning = 0;
  for (std::string bytes = program.read(); !bytes.empty(); bytes = program.read()) {
    for (const char c : bytes) {
      screen.put(c);
    }
    ASSERT_LE(screen.count(" of 8 outstanding"), drives);
    mostRunning = std::max(mostRunning, screen.count(" of 8 outstanding"));
    if (!stopped && screen.count("  ended: data failure") == 3) {
      program.type(ctrlC);
      stopped = true;
    }
  }
  EXPECT_EQ(program.wait(), 1);
  EXPECT_EQ(mostRunning, drives);
  EXPECT_TRUE(stopped);
  EXPECT_THAT(screen.unknown(), IsEmpty());
  for (size_t drive = 0; drive < drives; ++drive) {
    EXPECT_EQ(screen.count("*** DATA FAILURE *** sim" + std::to_string(drive) + ": Miscompare Detected at LBA"),
              drive % 3 == 0 ? 1U : 0U);
  }
}

}  // namespace
}  // namespace corvane::host
