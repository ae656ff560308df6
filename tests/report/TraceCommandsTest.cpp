#include "host/report/TraceCommands.h"

#include <gtest/gtest.h>

#include <algorithm>

#include "tests/report/Samples.h"

namespace corvane::host::report {
namespace {

TraceEntry entry(uint64_t index, TraceEvent event, const char* kind, uint64_t id, uint64_t tag, uint64_t lba,
                 uint64_t blocks) {
  TraceEntry made;
  made.index = index;
  made.event = event;
  made.kind = kind;
  made.commandId = id;
  made.tag = tag;
  made.lba = lba;
  made.blocks = blocks;
  return made;
}

TEST(TraceCommandsTest, putsIssueAndCompletionOfATagTogether) {
  TraceReport trace;
  trace.all = {
      entry(0, TraceEvent::issued, "trim", 1, 5, 100, 4),  entry(1, TraceEvent::issued, "read", 2, 6, 98, 8),
      entry(2, TraceEvent::finished, "read", 2, 6, 98, 8), entry(3, TraceEvent::finished, "write", 1, 5, 100, 4),
      entry(4, TraceEvent::issued, "write", 3, 5, 101, 1), entry(5, TraceEvent::aborted, "write", 3, 5, 101, 1),
      entry(6, TraceEvent::issued, "write", 4, 5, 102, 1)};
  trace.all[3].sense = 0x0B4E00;
  const std::vector<ReportedCommand> commands = commandsAround(trace, 101).commands;
  ASSERT_EQ(commands.size(), 4U);
  EXPECT_EQ(commands[0].kind, "trim");
  EXPECT_EQ(commands[0].finished, 3U);
  EXPECT_EQ(commands[0].trouble, "KCQ 0B4E00");
  EXPECT_TRUE(commands[0].touches(101));
  EXPECT_EQ(commands[1].finished, 2U);
  EXPECT_FALSE(commands[1].failed());
  EXPECT_EQ(commands[2].trouble, "aborted");
  EXPECT_FALSE(commands[3].finished);
  EXPECT_FALSE(commands[3].touches(101));
}

TEST(TraceCommandsTest, widensUntilThereIsSomethingToSee) {
  TraceReport trace;
  trace.all = {entry(0, TraceEvent::issued, "write", 1, 1, 1000, 1),
               entry(1, TraceEvent::issued, "write", 2, 2, 2000, 1),
               entry(2, TraceEvent::issued, "write", 3, 3, 1'000'000, 1)};
  EXPECT_EQ(commandsAround(trace, 1000).commands.size(), 2U);
}

TEST(TraceCommandsTest, ofVeryManyKeepsThoseOfTheBlock) {
  TraceReport trace;
  trace.all.push_back(entry(0, TraceEvent::issued, "write", 1, 1, 500, 1));
  for (uint64_t i = 1; i <= 1000; ++i) {
    trace.all.push_back(entry(i, TraceEvent::issued, "write", i + 1, 2, 501, 1));
  }
  const std::vector<ReportedCommand> commands = commandsAround(trace, 500).commands;
  ASSERT_EQ(commands.size(), 300U);
  EXPECT_EQ(commands.front().id, 1U);
  EXPECT_EQ(commands.back().id, 1001U);
}

TEST(TraceCommandsTest, momentsOfTheDriveAndOfTheBlockStay) {
  TraceReport trace;
  trace.all = {entry(0, TraceEvent::powerOff, "", 0, 0, 0, 0), entry(1, TraceEvent::zoneReset, "", 0, 0, 0, 0),
               entry(2, TraceEvent::rangeInvalidated, "", 0, 0, 90, 0),
               entry(3, TraceEvent::miscompare, "", 0, 0, 100, 0)};
  trace.all[1].endLba = 50;
  trace.all[2].endLba = 120;
  const TraceNeighbourhood around = commandsAround(trace, 100);
  const std::vector<Moment>& moments = around.moments;
  EXPECT_EQ(around.failingId, 0U);
  EXPECT_FALSE(commandsAround(trace, 101).failingId);
  ASSERT_EQ(moments.size(), 3U);
  EXPECT_EQ(moments[0].text, "power off");
  EXPECT_EQ(moments[1].text, "range invalidated");
  EXPECT_EQ(moments[2].text, "miscompare");
  EXPECT_EQ(moments[2].at, 3U);
}

TEST(TraceCommandsTest, greatestNumbersDoNoHarm) {
  constexpr uint64_t most = ~uint64_t{0};
  TraceReport trace;
  trace.all = {entry(0, TraceEvent::issued, "write", most, 1, most, most),
               entry(1, TraceEvent::issued, "read", 1, 2, 0, most)};
  EXPECT_EQ(commandsAround(trace, most).commands.size(), 2U);
  EXPECT_EQ(commandsAround(trace, 0).commands.size(), 1U);
}

TEST(TraceCommandsTest, showsTheSurroundingsInAReportOfARun) {
  const TraceReport trace = readTrace(host::testing::sampleText("lost-write/datacompare_trace_sim0.txt"));
  const std::vector<ReportedCommand> commands = commandsAround(trace, 148).commands;
  EXPECT_GE(commands.size(), 20U);
  EXPECT_EQ(std::count_if(commands.begin(), commands.end(), [](const auto& one) { return one.touches(148); }), 3);
}

}  // namespace
}  // namespace corvane::host::report
