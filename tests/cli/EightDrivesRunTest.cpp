// The program with eight drives: what their threads tell at the same time goes into one stream of events, one document
// each, one error stream, and nothing of it may be lost, torn or told of another drive.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>

#include <map>
#include <nlohmann/json.hpp>
#include <set>
#include <string>
#include <thread>
#include <variant>
#include <vector>

#include "host/cli/EventStreamReader.h"
#include "tests/cli/RunningProgram.h"

namespace corvane::host {
namespace {

using nlohmann::json;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using testing::ProgramEnd;
using testing::RunningProgram;
using tests::readFile;
using tests::TempFolder;

constexpr uint32_t drives = 8;

std::vector<std::string> runOfEightDrives(const std::vector<std::string>& more) {
  std::vector<std::string> words{"run",
                                 "--rate",
                                 "1000",
                                 "--seed",
                                 "5",
                                 "--output",
                                 "out",
                                 "--events",
                                 "events",
                                 "--junit",
                                 "junit.xml",
                                 "--commands-of",
                                 "write=2,atomic,trim,read=2,verify"};
  for (uint32_t drive = 0; drive < drives; ++drive) {
    words.insert(words.end(), {"--drive", drive % 2 == 0 ? "sim:8m" : "file:d" + std::to_string(drive) + ",size=8m"});
  }
  for (const char* option : {"Write Splice Detection=true", "Bucket Count=2048", "Min Queue Size=100",
                             "Max Queue Size=200", "Always Dump Sequence=true"}) {
    words.insert(words.end(), {"--set", option});
  }
  words.insert(words.end(), more.begin(), more.end());
  return words;
}

/// What the events say of one drive.
struct DriveStory {
  uint64_t resets = 0;
  uint64_t findings = 0;
  uint64_t ends = 0;
  uint64_t lateEvents = 0;  ///< behind its end
  std::set<std::string> reports;
  DriveTotals totals;  ///< at its end
  RunStatus status = RunStatus::clean;
};

class StoryTeller {
 public:
  explicit StoryTeller(const EventStreamContent& content) {
    for (const RunEvent& event : content.events) {
      EXPECT_GE(event.ms, ms_) << "the order in which it happened";
      ms_ = event.ms;
      std::visit([this](const auto& what) { take(what); }, event.what);
    }
  }
  const DriveStory& of(uint32_t drive) { return stories_[drive]; }
  uint64_t others() const { return others_; }

 private:
  DriveStory& living(uint32_t drive) {
    DriveStory& story = stories_[drive];
    story.lateEvents += story.ends;
    return story;
  }
  void take(const ResetEvent& reset) { ++living(reset.driveIndex).resets; }
  void take(const FindingEvent& finding) { ++living(finding.driveIndex).findings; }
  void take(const ProgressEvent& progress) { living(progress.driveIndex); }
  void take(const AgentEvent& agent) {
    constexpr std::string_view saved = "Bucket compare command sequence saved to ";
    DriveStory& story = living(agent.driveIndex);
    if (agent.text.starts_with(saved)) {
      story.reports.insert(agent.text.substr(saved.size()));
    }
  }
  void take(const DriveEndEvent& end) {
    DriveStory& story = living(end.driveIndex);
    ++story.ends;
    story.totals = end.totals;
    story.status = end.status;
  }
  template <typename Other>
  void take(const Other& /*of no drive*/) {
    ++others_;
  }

  uint64_t ms_ = 0;
  uint64_t others_ = 0;
  std::map<uint32_t, DriveStory> stories_;
};

/// Holds the stream of events against the document, drive by drive.
void expectSameStory(const TempFolder& folder, const std::set<uint32_t>& faulty) {
  const EventStreamContent events = readEventFile(folder / "events");
  ASSERT_FALSE(events.error) << events.error->line << ": " << events.error->text;
  EXPECT_FALSE(events.lastLineTorn);
  ASSERT_NE(events.end(), nullptr);
  StoryTeller stories(events);
  const json document = json::parse(readFile(folder / "out/result.json"));
  ASSERT_EQ(document["drives"].size(), drives);
  std::set<std::string> reports;
  for (uint32_t number = 0; number < drives; ++number) {
    SCOPED_TRACE("drive " + std::to_string(number));
    const DriveStory& story = stories.of(number);
    const json& drive = document["drives"][number];
    const bool fails = faulty.contains(number);
    EXPECT_EQ(story.status, fails ? RunStatus::dataFailure : RunStatus::clean);
    EXPECT_EQ(drive["status"], fails ? "data failure" : "clean");
    EXPECT_EQ(story.findings, fails ? 1U : 0U);
    EXPECT_EQ(story.ends, 1U);
    EXPECT_EQ(story.lateEvents, 0U);
    EXPECT_EQ(story.resets, story.totals.resets);
    EXPECT_EQ(story.reports.size(), 1U);
    reports.insert(story.reports.begin(), story.reports.end());
    uint64_t issued = 0;
    for (const json& kind : drive["commands"]["issued"]) {
      issued += kind.get<uint64_t>();
    }
    EXPECT_EQ(issued, story.totals.commandsIssued());
    EXPECT_GT(issued, 0U);
  }
  EXPECT_EQ(reports.size(), drives) << "each its own";
  EXPECT_EQ(document["findings"].size(), faulty.size());
}

/// How often the program has told of an event of a kind.
size_t eventsSoFar(const TempFolder& folder, const std::string& kind) {
  const std::string part = "\"event\":\"" + kind + "\"";
  const std::string events = readFile(folder / "events");
  size_t times = 0;
  for (size_t at = events.find(part); at != std::string::npos; at = events.find(part, at + 1)) {
    ++times;
  }
  return times;
}

void waitForEvents(const TempFolder& folder, const RunningProgram& program, const std::string& kind, size_t times) {
  while (eventsSoFar(folder, kind) < times) {
    ASSERT_FALSE(program.ended()) << program.outSoFar();
    std::this_thread::yield();
  }
}

TEST(EightDrivesRunTest, tellsOfEachDriveWhatItDid) {
  const TempFolder folder;
  std::vector<std::string> more{"--time", "1h", "--reset-every", "60"};
  for (const char* fault : {"lost-write:at=command:50,most=100,drive=2", "lost-write:at=command:120,most=100,drive=5",
                            "lost-write:at=command:190,most=100,drive=7"}) {
    more.insert(more.end(), {"--fault", fault});
  }
  RunningProgram program(folder, runOfEightDrives(more));
  waitForEvents(folder, program, "driveEnd", 3);
  // The others are told of twice more.
  waitForEvents(folder, program, "progress", eventsSoFar(folder, "progress") + 2UL * (drives - 3));
  kill(program.pid(), SIGINT);
  const ProgramEnd end = program.wait();
  EXPECT_EQ(end.status, 1) << end.err;
  expectSameStory(folder, {1, 4, 6});
  EXPECT_THAT(readFile(folder / "junit.xml"), HasSubstr("tests=\"8\" failures=\"3\" errors=\"0\""));
  for (uint32_t number = 0; number < drives; ++number) {
    EXPECT_THAT(end.out, HasSubstr("Drive " + std::string(number % 2 == 0 ? "sim" : "d") + std::to_string(number)));
  }
}

TEST(EightDrivesRunTest, aSignalEndsAllOfThemInTheMiddle) {
  for (const int signal : {SIGINT, SIGTERM}) {
    const TempFolder folder;
    RunningProgram program(folder, runOfEightDrives({"--time", "1h"}));
    // By the time of the first progress each drive is at work.
    waitForEvents(folder, program, "progress", drives);
    kill(program.pid(), signal);
    const ProgramEnd end = program.wait();
    EXPECT_EQ(end.status, 0) << end.err;
    EXPECT_THAT(end.err, IsEmpty());
    expectSameStory(folder, {});
    const json document = json::parse(readFile(folder / "out/result.json"));
    EXPECT_EQ(document["stopped"], true);
    for (const json& drive : document["drives"]) {
      EXPECT_EQ(drive["commands"]["issued"], drive["commands"]["completed"]) << "what was outstanding was waited for";
    }
    EXPECT_THAT(readFile(folder / "junit.xml"), HasSubstr("tests=\"8\" failures=\"0\" errors=\"0\""));
  }
}

}  // namespace
}  // namespace corvane::host
