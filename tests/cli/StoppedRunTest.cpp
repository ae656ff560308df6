#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>

#include <algorithm>
#include <nlohmann/json.hpp>
#include <string>
#include <thread>
#include <variant>
#include <vector>

#include "host/cli/EventStreamReader.h"
#include "tests/cli/RunningProgram.h"

namespace corvane::host {
namespace {

using nlohmann::json;
using ::testing::EndsWith;
using ::testing::HasSubstr;
using testing::ProgramEnd;
using testing::runCorvane;
using testing::RunningProgram;
using tests::readFile;
using tests::TempFolder;

std::vector<std::string> endlessRun(const std::vector<std::string>& more) {
  std::vector<std::string> arguments{"run", "--drive",  "sim:64m", "--time",   "1h",    "--seed",
                                     "3",   "--output", "out",     "--events", "events"};
  arguments.insert(arguments.end(), more.begin(), more.end());
  return arguments;
}

size_t timesIn(const std::string& text, const std::string& part) {
  size_t times = 0;
  for (size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + 1)) {
    ++times;
  }
  return times;
}

/// Waits until the program has told of so many events of a kind; signals are caught since the first one.
void waitForEvents(const TempFolder& folder, const RunningProgram& program, const std::string& kind, size_t times) {
  const std::string part = "\"event\":\"" + kind + "\"";
  while (timesIn(readFile(folder / "events"), part) < times) {
    ASSERT_FALSE(program.ended()) << program.outSoFar();
    std::this_thread::yield();
  }
}

/// The last event of a kind; null when there is none.
template <typename Event>
const Event* lastOf(const EventStreamContent& content) {
  const Event* last = nullptr;
  for (const RunEvent& event : content.events) {
    if (const auto* one = std::get_if<Event>(&event.what)) {
      last = one;
    }
  }
  return last;
}

TEST(StoppedRunTest, aSignalEndsTheTestWithItsSummary) {
  for (const int signal : {SIGINT, SIGTERM}) {
    const TempFolder folder;
    RunningProgram program(folder, endlessRun({}));
    waitForEvents(folder, program, "start", 1);
    kill(program.pid(), signal);
    const ProgramEnd end = program.wait();
    EXPECT_EQ(end.status, 0) << end.err;
    EXPECT_THAT(end.out, HasSubstr("Stopped before its end.\n"));
    EXPECT_THAT(end.out, EndsWith("Result: clean, nothing found\n"));
    const json document = json::parse(readFile(folder / "out/result.json"));
    EXPECT_EQ(document["status"], "clean");
    EXPECT_EQ(document["stopped"], true);
    EXPECT_EQ(document["drives"][0]["commands"]["issued"], document["drives"][0]["commands"]["completed"])
        << "what was outstanding was waited for";
    const EventStreamContent events = readEventFile(folder / "events");
    ASSERT_FALSE(events.error) << events.error->text;
    const auto* stop = lastOf<StopEvent>(events);
    ASSERT_NE(stop, nullptr);
    EXPECT_EQ(stop->signal, signal == SIGINT ? "SIGINT" : "SIGTERM");
    ASSERT_NE(events.end(), nullptr);
    EXPECT_TRUE(events.end()->stopped);
    EXPECT_EQ(events.end()->status, RunStatus::clean);
  }
}

TEST(StoppedRunTest, whatWasFoundBeforeStaysFound) {
  const TempFolder folder;
  RunningProgram program(folder, endlessRun({"--drive", "sim:64m", "--fault", "lost-write:rate=0.05,drive=1", "--set",
                                             "Min Queue Size=100", "--set", "Max Queue Size=200"}));
  waitForEvents(folder, program, "driveEnd", 1);
  kill(program.pid(), SIGINT);
  const ProgramEnd end = program.wait();
  EXPECT_EQ(end.status, 1) << end.err;
  EXPECT_THAT(end.out, EndsWith("Result: data failure (exit status 1)\n"));
  const EventStreamContent events = readEventFile(folder / "events");
  ASSERT_FALSE(events.error) << events.error->text;
  const auto* found = lastOf<FindingEvent>(events);
  ASSERT_NE(found, nullptr);
  EXPECT_EQ(found->driveIndex, 0U);
  EXPECT_EQ(lastOf<DriveEndEvent>(events)->driveIndex, 1U);
  EXPECT_EQ(lastOf<DriveEndEvent>(events)->status, RunStatus::clean);
  ASSERT_NE(events.end(), nullptr);
  EXPECT_EQ(events.end()->exitStatus, 1);
  const json document = json::parse(readFile(folder / "out/result.json"));
  EXPECT_EQ(document["status"], "data failure");
  EXPECT_EQ(document["findings"][0]["text"], found->finding.text);
}

/// Both signals wait while the program stands still, and so arrive one upon the other.
TEST(StoppedRunTest, aSecondSignalEndsTheProgramAtOnce) {
  const TempFolder folder;
  RunningProgram program(folder, endlessRun({}));
  waitForEvents(folder, program, "start", 1);
  kill(program.pid(), SIGSTOP);
  kill(program.pid(), SIGINT);
  kill(program.pid(), SIGTERM);
  kill(program.pid(), SIGCONT);
  const ProgramEnd end = program.wait();
  EXPECT_EQ(end.status, -1);
  EXPECT_EQ(end.out.find("Result:"), std::string::npos);
  EXPECT_EQ(json::parse(readFile(folder / "out/result.json"))["status"], "unfinished");
}

TEST(StoppedRunTest, aKilledRunLeavesItsEventsAndAnUnfinishedDocument) {
  const TempFolder folder;
  RunningProgram program(folder, endlessRun({"--drive", "sim:64m", "--reset-every", "5000"}));
  waitForEvents(folder, program, "reset", 1);
  // Each drive once more, and so the one that was reset after its first commands.
  waitForEvents(folder, program, "progress", timesIn(readFile(folder / "events"), "\"event\":\"progress\"") + 4);
  kill(program.pid(), SIGKILL);
  program.wait();
  const EventStreamContent events = readEventFile(folder / "events");
  ASSERT_FALSE(events.error) << events.error->line << ": " << events.error->text;
  ASSERT_NE(events.start(), nullptr);
  EXPECT_EQ(events.start()->seed, 3U);
  EXPECT_EQ(events.start()->drives.size(), 2U);
  EXPECT_EQ(events.start()->repeat.front(), "corvane");
  EXPECT_EQ(events.end(), nullptr);
  EXPECT_NE(lastOf<ResetEvent>(events), nullptr);
  uint64_t mostIssued = 0;
  for (const RunEvent& event : events.events) {
    if (const auto* progress = std::get_if<ProgressEvent>(&event.what)) {
      mostIssued = std::max(mostIssued, progress->totals.commandsIssued());
    }
  }
  EXPECT_GE(mostIssued, 5000U);
  const json document = json::parse(readFile(folder / "out/result.json"));
  EXPECT_EQ(document["status"], "unfinished");
  EXPECT_TRUE(document["exitStatus"].is_null());
}

TEST(StoppedRunTest, eventsThatCannotBeWrittenDoNotEndTheTest) {
  const TempFolder folder;
  const ProgramEnd end = runCorvane(
      folder, {"run", "--drive", "sim:64m", "--commands", "2000", "--output", "out", "--events", "/dev/full"});
  EXPECT_EQ(end.status, 0) << end.err;
  EXPECT_EQ(timesIn(end.out,
                    "warning: --events '/dev/full' cannot be written: No space left on device; the test goes "
                    "on, events are missing\n"),
            1U);
  EXPECT_THAT(end.out, EndsWith("Result: clean, nothing found\n"));
}

}  // namespace
}  // namespace corvane::host
