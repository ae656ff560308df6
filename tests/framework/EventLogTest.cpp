#include "vdl/EventLog.h"

#include <gtest/gtest.h>

#include <set>
#include <string>
#include <thread>
#include <vector>

#include "host/framework/DriveThreadHost.h"

namespace corvane::host {
namespace {

class EventLogTest : public testing::Test {
 protected:
  EventLogTest() {
    DriveThreadHost::Settings settings;
    settings.log = [this](int level, std::string_view text) { lines.emplace_back(level, text); };
    host = std::make_unique<DriveThreadHost>(std::move(settings));
  }
  vdl::EventLog& log() { return *host->thread().eventLog; }

  std::vector<std::pair<int, std::string>> lines;
  std::unique_ptr<DriveThreadHost> host;
};

TEST_F(EventLogTest, FormatsItsLines) {
  log().logf(2, "execute(): %s (%d)", "text", -1046);
  log().logf(0, "%%");
  ASSERT_EQ(lines.size(), 2U);
  EXPECT_EQ(lines[0], std::make_pair(2, std::string("execute(): text (-1046)")));
  EXPECT_EQ(lines[1], std::make_pair(0, std::string("%")));
}

TEST_F(EventLogTest, LongLinesAreWhole) {
  for (const size_t length : {511U, 512U, 513U, 5000U}) {
    const std::string text(length, 'x');
    log().logf(1, "%s", text.c_str());
    EXPECT_EQ(lines.back().second, text);
  }
}

TEST_F(EventLogTest, EveryStatusHasATextThatStays) {
  std::set<std::string> texts;
  const std::vector<int> codes{0,     -1002, -1003, -1004, -1009, -1022, -1027, -1045,
                               -1046, -1050, -1052, -1053, -1057, -1062, -1063, -1200};
  for (const int code : codes) {
    const char* text = log().errStr(code);
    ASSERT_NE(text, nullptr);
    EXPECT_EQ(text, log().errStr(code));
    texts.insert(text);
  }
  EXPECT_EQ(texts.size(), codes.size());
  ASSERT_NE(log().errStr(-77777), nullptr);
  EXPECT_NE(std::string(log().errStr(-77777)), "");
}

TEST_F(EventLogTest, LinesOfSeveralThreadsStayWhole) {
  std::vector<std::thread> threads;
  threads.reserve(8);
  for (int thread = 0; thread < 4; ++thread) {
    threads.emplace_back([this, thread] {
      for (int i = 0; i < 200; ++i) {
        log().logf(thread, "thread %d line %d", thread, i);
      }
    });
  }
  for (std::thread& thread : threads) {
    thread.join();
  }
  ASSERT_EQ(lines.size(), 800U);
  for (const auto& [level, text] : lines) {
    EXPECT_EQ(text.rfind("thread " + std::to_string(level) + " line ", 0), 0U) << text;
  }
}

TEST(EventLog, WithoutASinkLinesAreDropped) {
  DriveThreadHost host(DriveThreadHost::Settings{});
  host.thread().eventLog->logf(2, "nobody hears %d", 1);
  vdl::EventLog bare;
  bare.logf(2, "nor this");
  EXPECT_STREQ(bare.errStr(0), host.thread().eventLog->errStr(0));
}

}  // namespace
}  // namespace corvane::host
