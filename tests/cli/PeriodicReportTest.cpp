#include "host/cli/PeriodicReport.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <csignal>
#include <cstdio>
#include <memory>
#include <string>

#include "host/cli/EventStreamReader.h"
#include "tests/run/ManualClock.h"
#include "tests/support/TempFolder.h"

namespace corvane::host {
namespace {

using testing::ManualClock;

class PeriodicReportTest : public ::testing::Test {
 public:
  ~PeriodicReportTest() override { std::fclose(stream_); }

 protected:
  PeriodicReportTest() {
    StartEvent start;
    start.drives.resize(1);
    start.drives[0].name = "a";
    events_.start(start);
    now_.drives.push_back({});
    now_.drives[0].totals.outstanding = 3;
  }

  PeriodicReport report(Console* out) {
    return PeriodicReport({.progress = [this] { return now_; }, .found = [] { return std::vector<bool>{false}; }},
                          {.drives = {"a"}, .queueDepth = 4}, out, &events_);
  }

  /// Goes on in time and lets it tell.
  uint64_t tellAt(PeriodicReport& report, uint64_t ms, int signal = 0) {
    clock_.pause((ms - now_.elapsedMs) * 1000);
    now_.elapsedMs = ms;
    return report.tell(ms, signal);
  }

  std::string printed() {
    std::rewind(stream_);
    std::string text(8192, '\0');
    text.resize(std::fread(text.data(), 1, text.size(), stream_));
    return text;
  }

  std::vector<uint64_t> progressTimes() const {
    std::vector<uint64_t> times;
    for (const RunEvent& event : readEventFile(folder_ / "events").events) {
      if (std::holds_alternative<ProgressEvent>(event.what)) {
        times.push_back(event.ms);
      }
    }
    return times;
  }

  tests::TempFolder folder_;
  ManualClock clock_;
  EventStream events_{std::make_unique<EventFile>("--events", folder_ / "events"), clock_, [](const std::string&) {}};
  std::FILE* stream_ = std::tmpfile();
  Console file_{stream_, false, [] { return ScreenSize(); }};
  Console terminal_{stream_, true, [] { return ScreenSize{.columns = 42, .rows = 24}; }};
  ProgressSnapshot now_;
};

TEST_F(PeriodicReportTest, aFileGetsALineEveryTenSecondsAndEventsEverySecond) {
  PeriodicReport report = this->report(&file_);
  EXPECT_EQ(tellAt(report, 0), 1000U);
  for (uint64_t ms = 1000; ms <= 20'000; ms += 1000) {
    EXPECT_EQ(tellAt(report, ms), 1000U);
  }
  const std::string rest =
      "  0 findings  3 of 4 outstanding  compared    0.0 MB/s     0 blocks/s  written    0.0 MB/s     0 blocks/s  read "
      "back    0.0 MB/s     0 blocks/s\n";
  EXPECT_EQ(printed(), "a  0:10" + rest + "a  0:20" + rest);
  EXPECT_EQ(progressTimes().size(), 20U);
  EXPECT_EQ(progressTimes().back(), 20'000U);
}

TEST_F(PeriodicReportTest, aTerminalIsRedrawnTwiceASecondAndCleanedUp) {
  {
    PeriodicReport report = this->report(&terminal_);
    EXPECT_EQ(tellAt(report, 0), 500U);
    EXPECT_EQ(tellAt(report, 400), 100U);
    EXPECT_EQ(printed(), "");
    EXPECT_EQ(tellAt(report, 500), 500U);
    EXPECT_EQ(tellAt(report, 1000), 500U);
  }
  EXPECT_EQ(printed(),
            "a  0:00  0 findings  3 of 4 outstanding\x1b[J\ra  0:01  0 findings  3 of 4 outstanding\x1b[J\r\x1b[J");
}

TEST_F(PeriodicReportTest, whoIsLateTellsOnceAndKeepsToTheGrid) {
  PeriodicReport report = this->report(nullptr);
  EXPECT_EQ(tellAt(report, 4300), 700U);
  EXPECT_EQ(tellAt(report, 4999), 1U);
  EXPECT_EQ(tellAt(report, 5000), 1000U);
  EXPECT_EQ(progressTimes(), (std::vector<uint64_t>{4300, 5000}));
}

TEST_F(PeriodicReportTest, aSignalIsToldOnceAndAtOnce) {
  {
    PeriodicReport report = this->report(&terminal_);
    tellAt(report, 100, SIGTERM);
    tellAt(report, 200, SIGTERM);
    EXPECT_FALSE(report.tellStop(SIGTERM));
  }
  EXPECT_EQ(printed(),
            "SIGTERM: no further commands are sent, those outstanding are waited for; once more ends the program at "
            "once\na  0:00  0 findings  3 of 4 outstanding\x1b[J\r\x1b[J");
  const EventStreamContent content = readEventFile(folder_ / "events");
  ASSERT_EQ(content.events.size(), 2U);
  EXPECT_EQ(std::get<StopEvent>(content.events[1].what).signal, "SIGTERM");
  EXPECT_EQ(content.events[1].ms, 100U);
}

}  // namespace
}  // namespace corvane::host
