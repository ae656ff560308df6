#include "host/cli/EventStream.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/resource.h>

#include <csignal>
#include <memory>
#include <string>
#include <vector>

#include "tests/run/ManualClock.h"
#include "tests/support/TempFolder.h"

namespace corvane::host {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using testing::ManualClock;
using tests::readFile;

class EventStreamTest : public ::testing::Test {
 protected:
  std::unique_ptr<EventStream> streamTo(const std::string& path) {
    return std::make_unique<EventStream>(std::make_unique<EventFile>("--events", path), clock_,
                                         [this](const std::string& cause) { warnings_.push_back(cause); });
  }

  static StartEvent twoDrives() {
    StartEvent start;
    start.version = "9";
    start.drives.resize(2);
    start.drives[0].name = "a";
    start.drives[1].name = "b";
    return start;
  }

  std::vector<std::string> linesOf(const std::string& path) const {
    std::vector<std::string> lines;
    const std::string text = readFile(path);
    for (size_t begin = 0; begin < text.size();) {
      const size_t end = text.find('\n', begin);
      lines.push_back(text.substr(begin, end - begin));
      begin = end == std::string::npos ? text.size() : end + 1;
    }
    return lines;
  }

  tests::TempFolder folder_;
  const std::string path_ = folder_ / "events";
  ManualClock clock_;
  std::vector<std::string> warnings_;
};

TEST_F(EventStreamTest, eachEventIsALineThatIsThereAtOnce) {
  clock_.pause(5'000'000);
  const auto stream = streamTo(path_);
  stream->start(twoDrives());
  EXPECT_EQ(linesOf(path_).size(), 1U);
  EXPECT_THAT(linesOf(path_)[0], HasSubstr(R"({"t":0,"event":"start","version":"9")"));
  clock_.pause(1'500'000);
  stream->onAgentLine(1, 2, "two\nlines");
  EXPECT_EQ(linesOf(path_)[1],
            R"({"t":1500,"event":"agent","driveIndex":1,"drive":"b","level":2,"text":"two\nlines"})");
  stream->onReset(0);
  EXPECT_EQ(linesOf(path_)[2], R"({"t":1500,"event":"reset","driveIndex":0,"drive":"a"})");
  stream->onPowerCycle(0);
  EXPECT_EQ(linesOf(path_)[3], R"({"t":1500,"event":"powerCycle","driveIndex":0,"drive":"a"})");
  stream->onConnectionLost(1, "no answer");
  EXPECT_EQ(linesOf(path_)[4], R"({"t":1500,"event":"connectionLost","driveIndex":1,"drive":"b","cause":"no answer"})");
  stream->stop(SIGINT);
  EXPECT_EQ(linesOf(path_)[5], R"({"t":1500,"event":"stop","signal":"SIGINT"})");
  stream->onFinding(1,
                    {.drive = "b", .agentStatus = -1046, .lba = 7, .text = "bad \xff", .files = {"x"}, .moment = {}});
  EXPECT_EQ(linesOf(path_)[6],
            "{\"t\":1500,\"event\":\"finding\",\"driveIndex\":1,\"drive\":\"b\",\"agentStatus\":-1046,\"lba\":7,"
            "\"text\":\"bad \xEF\xBF\xBD\",\"files\":[\"x\"]}");
  stream->end({.status = RunStatus::dataFailure, .exitStatus = 1, .stopped = true, .error = ""});
  EXPECT_EQ(linesOf(path_)[7],
            R"({"t":1500,"event":"end","status":"data failure","exitStatus":1,"stopped":true,"error":""})");
  EXPECT_THAT(warnings_, IsEmpty());
}

TEST_F(EventStreamTest, progressIsToldOfDrivesThatHaveNotEnded) {
  const auto stream = streamTo(path_);
  stream->start(twoDrives());
  ProgressSnapshot now;
  now.drives.resize(2);
  now.drives[1].totals.outstanding = 9;
  stream->progress(now);
  stream->onDriveEnd(0, {});
  stream->progress(now);
  const std::vector<std::string> lines = linesOf(path_);
  ASSERT_EQ(lines.size(), 5U);
  EXPECT_THAT(lines[1], HasSubstr(R"("event":"progress","driveIndex":0)"));
  EXPECT_THAT(lines[2], HasSubstr(R"("event":"progress","driveIndex":1,"drive":"b","outstanding":9)"));
  EXPECT_THAT(lines[3], HasSubstr(R"("event":"driveEnd","driveIndex":0)"));
  EXPECT_THAT(lines[4], HasSubstr(R"("event":"progress","driveIndex":1)"));
}

TEST_F(EventStreamTest, startsAnewInAFileThatWasThereAndEndsWithTheEnd) {
  tests::writeFile(path_, "old\n");
  const auto stream = streamTo(path_);
  EXPECT_EQ(readFile(path_), "old\n") << "what was there stays until the test begins";
  stream->onReset(0);
  stream->start(twoDrives());
  stream->end({});
  stream->onReset(0);
  EXPECT_EQ(linesOf(path_).size(), 2U);
}

TEST_F(EventStreamTest, aFullDiskIsToldOnceAndDisturbsNobody) {
  const auto stream = streamTo("/dev/full");
  stream->start(twoDrives());
  stream->onReset(0);
  stream->end({});
  EXPECT_THAT(warnings_, ElementsAre("No space left on device"));
}

/// A limit of the process stands for a disk that is full for a while.
TEST_F(EventStreamTest, saysHowManyEventsAreMissing) {
  const auto stream = streamTo(path_);
  stream->start(twoDrives());
  rlimit before{};
  ASSERT_EQ(getrlimit(RLIMIT_FSIZE, &before), 0);
  const auto handler = signal(SIGXFSZ, SIG_IGN);
  rlimit none = before;
  none.rlim_cur = 1;
  ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &none), 0);
  stream->onReset(0);
  stream->onReset(1);
  ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &before), 0);
  signal(SIGXFSZ, handler);
  stream->onPowerCycle(1);
  stream->onReset(0);
  const std::vector<std::string> lines = linesOf(path_);
  ASSERT_EQ(lines.size(), 4U);
  EXPECT_EQ(lines[1], R"({"t":0,"event":"lost","events":2})");
  EXPECT_THAT(lines[2], HasSubstr("powerCycle"));
  EXPECT_THAT(lines[3], HasSubstr("reset"));
  EXPECT_EQ(warnings_.size(), 1U);
}

TEST(SignalNameTest, isTheUsualOne) {
  EXPECT_EQ(signalName(SIGINT), "SIGINT");
  EXPECT_EQ(signalName(SIGTERM), "SIGTERM");
  EXPECT_EQ(signalName(999), "signal 999");
}

}  // namespace
}  // namespace corvane::host
