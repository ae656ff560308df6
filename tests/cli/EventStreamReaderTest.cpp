#include "host/cli/EventStreamReader.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "host/base/Random.h"
#include "host/cli/EventJson.h"
#include "tests/cli/SampleRun.h"
#include "tests/support/TempFolder.h"

namespace corvane::host {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using testing::SampleRun;

/// Every number differs from every other one, so that none can be read from the place of another.
DriveTotals distinctTotals() {
  uint64_t next = 100;
  DriveTotals totals;
  for (uint64_t& count : totals.issued) {
    count = next++;
  }
  for (uint64_t& count : totals.completed) {
    count = next++;
  }
  for (uint64_t* count : {&totals.failed, &totals.blocksWritten, &totals.bytesWritten, &totals.blocksTrimmed,
                          &totals.blocksRead, &totals.bytesRead, &totals.blocksCompared, &totals.bytesCompared,
                          &totals.resets, &totals.powerCycles, &totals.connectionsLost, &totals.zoneResets,
                          &totals.invalidations, &totals.heldBack, &totals.retried, &totals.stray}) {
    *count = next++;
  }
  totals.maxOutstanding = static_cast<uint32_t>(next++);
  return totals;
}

std::vector<RunEvent> everyEvent() {
  const SampleRun sample;
  DriveTotals running = distinctTotals();
  running.outstanding = 31;
  return {{0, StartEvent{.version = "1.2",
                         .seed = 18446744073709551615U,
                         .seedDrawn = true,
                         .repeat = {"corvane", "run"},
                         .warnings = {"careful"},
                         .drives = sample.drives}},
          {1000, ProgressEvent{.driveIndex = 1, .totals = running}},
          {1001, AgentEvent{.driveIndex = 0, .level = 1, .text = "a \"line\"\n"}},
          {1002, ResetEvent{.driveIndex = 1}},
          {1003, PowerCycleEvent{.driveIndex = 1}},
          {1003, ConnectionLostEvent{.driveIndex = 1, .cause = "gone"}},
          {1004, FindingEvent{.driveIndex = 1, .finding = sample.result.findings[0]}},
          {1005, DriveEndEvent{.driveIndex = 1,
                               .status = RunStatus::dataFailure,
                               .agentStatus = -1046,
                               .error = "bad",
                               .elapsedMs = 77,
                               .totals = distinctTotals()}},
          {1006, StopEvent{.signal = "SIGINT"}},
          {1007, LostEvent{.events = 3}},
          {1008, EndEvent{.status = RunStatus::drive, .exitStatus = 3, .stopped = true, .error = "gone"}}};
}

std::string streamOf(const std::vector<RunEvent>& events) {
  std::string text;
  for (const RunEvent& event : events) {
    text += eventLine(event, {"sim0", "b.img"}) + "\n";
  }
  return text;
}

TEST(EventStreamReaderTest, readsEveryEventBackAsItWas) {
  const std::string stream = streamOf(everyEvent());
  const EventStreamContent content = readEvents(stream);
  ASSERT_FALSE(content.error) << content.error->text;
  EXPECT_FALSE(content.lastLineTorn);
  ASSERT_EQ(content.events.size(), 10U);
  EXPECT_EQ(streamOf(content.events), stream);
  const StartEvent* start = content.start();
  ASSERT_NE(start, nullptr);
  EXPECT_EQ(start->seed, 18446744073709551615U);
  EXPECT_THAT(start->repeat, ElementsAre("corvane", "run"));
  EXPECT_EQ(start->drives[0].geometry.physicalExponent, 1U);
  EXPECT_EQ(start->drives[0].geometry.protectionBytes, 8U);
  EXPECT_EQ(start->drives[0].endLba, 900U);
  EXPECT_EQ(content.events[1].ms, 1000U);
  const auto& progress = std::get<ProgressEvent>(content.events[1].what);
  EXPECT_EQ(progress.totals.outstanding, 31U);
  EXPECT_EQ(progress.totals.blocksCompared, distinctTotals().blocksCompared);
  EXPECT_EQ(std::get<FindingEvent>(content.events[5].what).finding.agentStatus, -1046);
  ASSERT_NE(content.end(), nullptr);
  EXPECT_EQ(content.end()->exitStatus, 3);
}

TEST(EventStreamReaderTest, whereverItIsCutOffTheLinesBeforeAreThere) {
  const std::string stream = streamOf(everyEvent());
  size_t whole = 0;
  for (size_t length = 0; length < stream.size(); ++length) {
    const EventStreamContent content = readEvents(std::string_view(stream).substr(0, length));
    ASSERT_FALSE(content.error) << length << ": " << content.error->text;
    // A line that lacks nothing but its line break is whole.
    const bool complete = length != 0 && (stream[length] == '\n' || stream[length - 1] == '\n');
    whole += stream[length] == '\n' ? 1U : 0U;
    ASSERT_EQ(content.events.size(), whole) << length;
    ASSERT_EQ(content.lastLineTorn, length != 0 && !complete) << length;
  }
}

TEST(EventStreamReaderTest, namesTheLineThatIsDamaged) {
  std::string stream = streamOf(everyEvent());
  const size_t third = stream.find("{\"t\":1001");
  EventStreamContent content = readEvents(stream.substr(0, third) + "garbage\n" + stream.substr(third));
  ASSERT_TRUE(content.error);
  EXPECT_EQ(content.error->line, 3U);
  EXPECT_EQ(content.error->text, "this is no JSON object");
  EXPECT_EQ(content.events.size(), 2U);
  stream.replace(stream.find("\"stray\":"), 8, "\"strax\":");
  content = readEvents(stream);
  ASSERT_TRUE(content.error);
  EXPECT_EQ(content.error->line, 2U);
  EXPECT_EQ(content.error->text, "the event 'progress' has no fitting value of 'commands.stray'");
}

TEST(EventStreamReaderTest, refusesWhatCannotBe) {
  const std::string start = eventLine(everyEvent()[0], {}) + "\n";
  const auto faultOf = [](const std::string& stream) {
    const EventStreamContent content = readEvents(stream);
    return content.error ? std::to_string(content.error->line) + ": " + content.error->text : "none";
  };
  EXPECT_EQ(faultOf(start + R"({"t":1,"event":"reset","driveIndex":2})" + "\n"),
            "2: the event is about drive 2, but there are 2");
  EXPECT_EQ(faultOf(start + start), "2: there is a second start event");
  EXPECT_EQ(faultOf(R"({"t":1,"event":"reset","driveIndex":0})"), "1: the stream does not begin with a start event");
  EXPECT_EQ(faultOf(start + R"({"t":-1,"event":"reset","driveIndex":0})"),
            "2: the event 'reset' has no fitting value of 't'");
  EXPECT_EQ(faultOf(start + R"({"t":1,"event":"reset","driveIndex":4294967296})"),
            "2: the event 'reset' has no fitting value of 'driveIndex'");
  EXPECT_EQ(faultOf(start + R"({"t":1,"event":"agent","driveIndex":0,"level":4000000000,"text":""})"),
            "2: the event 'agent' has no fitting value of 'level'");
  EXPECT_EQ(faultOf(start + R"({"t":1,"event":"end","status":"fine","exitStatus":0,"stopped":false,"error":""})"),
            "2: the event 'end' has no fitting value of 'status'");
  EXPECT_EQ(faultOf(start + "[]\n"), "2: this is no JSON object");
  EXPECT_EQ(faultOf(start + "\n"), "2: this is no JSON object");
  EXPECT_EQ(faultOf(start + R"({"t":1})"), "2: this has no fitting value of 'event'");
}

TEST(EventStreamReaderTest, passesOverEventsThatItDoesNotKnow) {
  const EventStreamContent content =
      readEvents(eventLine(everyEvent()[0], {}) + "\n" + R"({"t":1,"event":"later","x":[]})" + "\n" +
                 R"({"t":2,"event":"stop","signal":"SIGINT","more":1})" + "\n");
  EXPECT_FALSE(content.error);
  EXPECT_EQ(content.unknownEvents, 1U);
  EXPECT_EQ(content.events.size(), 2U);
}

TEST(EventStreamReaderTest, survivesAnyBytes) {
  const std::string stream = streamOf(everyEvent());
  Random random(1);
  uint64_t faults = 0;
  for (int round = 0; round < 3000; ++round) {
    std::string damaged = stream;
    for (uint64_t i = 0; i <= random.next() % 4; ++i) {
      damaged[random.next() % damaged.size()] = static_cast<char>(random.next());
    }
    const EventStreamContent content = readEvents(damaged);
    faults += content.error ? 1U : 0U;
    ASSERT_LE(content.events.size(), 11U);
  }
  EXPECT_GT(faults, 1000U);
  EXPECT_TRUE(readEvents(std::string(100'000, '[') + "\n").error);
  EXPECT_TRUE(readEvents("{\"t\":" + std::string(100'000, '[') + std::string(100'000, ']') + "}\n").error);
}

TEST(EventStreamReaderTest, anEmptyStreamHasNoEvents) {
  const EventStreamContent content = readEvents("");
  EXPECT_FALSE(content.error);
  EXPECT_FALSE(content.lastLineTorn);
  EXPECT_EQ(content.start(), nullptr);
  EXPECT_EQ(content.end(), nullptr);
}

TEST(EventStreamReaderTest, readsAFile) {
  const tests::TempFolder folder;
  tests::writeFile(folder / "x", streamOf(everyEvent()));
  EXPECT_EQ(readEventFile(folder / "x").events.size(), 10U);
  tests::writeFile(folder / "empty", "");
  EXPECT_FALSE(readEventFile(folder / "empty").error);
  for (const std::string& path : {folder / "none", folder.path()}) {
    const EventStreamContent content = readEventFile(path);
    ASSERT_TRUE(content.error) << path;
    EXPECT_EQ(content.error->line, 0U);
    EXPECT_THAT(content.error->text, HasSubstr(path));
  }
}

}  // namespace
}  // namespace corvane::host
