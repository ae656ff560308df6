#include "host/run/AgentLog.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace corvane::host {
namespace {

using ::testing::ElementsAre;

struct RecordingObserver : RunObserver {
  void onAgentLine(uint32_t driveIndex, int level, std::string_view text) override {
    lines.push_back(std::to_string(driveIndex) + ":" + std::to_string(level) + ":" + std::string(text));
  }
  std::vector<std::string> lines;
};

TEST(AgentLog, CountsWarningsAndErrorsAndPassesEveryLineOn) {
  RecordingObserver observer;
  AgentLog log(3, &observer);
  log.add(0, "hello");
  log.add(1, "careful");
  log.add(2, "bad");
  log.add(2, "worse");
  const AgentMessages messages = log.messages();
  EXPECT_EQ(messages.warnings, 1U);
  EXPECT_EQ(messages.errors, 2U);
  ASSERT_EQ(messages.lines.size(), 3U);
  EXPECT_EQ(messages.lines[0].text, "careful");
  EXPECT_EQ(messages.lines[0].level, 1);
  EXPECT_EQ(log.firstError(), "bad");
  EXPECT_THAT(observer.lines, ElementsAre("3:0:hello", "3:1:careful", "3:2:bad", "3:2:worse"));
}

TEST(AgentLog, KeepsTheFirstHundredTexts) {
  AgentLog log(0, nullptr);
  for (int i = 0; i < 250; ++i) {
    log.add(2, "line " + std::to_string(i));
  }
  const AgentMessages messages = log.messages();
  EXPECT_EQ(messages.errors, 250U);
  ASSERT_EQ(messages.lines.size(), 100U);
  EXPECT_EQ(messages.lines.back().text, "line 99");
}

TEST(AgentLog, FindsTheFilesThatTheAgentWroteAtAnyLevel) {
  AgentLog log(0, nullptr);
  log.add(0, "Bucket compare command sequence saved to './out/datacompare_trace_it's me.txt'");
  log.add(2, "Miscompare Data Written To './a_drive_x.bin'");
  log.add(2, "Miscompare Data Written To './a_reference_x.bin'");
  log.add(2, "Miscompare Data Written To nowhere");
  const AgentMessages messages = log.messages();
  EXPECT_THAT(messages.reports, ElementsAre("./out/datacompare_trace_it's me.txt"));
  EXPECT_THAT(messages.dumps, ElementsAre("./a_drive_x.bin", "./a_reference_x.bin"));
}

TEST(AgentLog, WithoutAnErrorTheFirstOneIsEmpty) {
  AgentLog log(0, nullptr);
  log.add(1, "only a warning");
  EXPECT_EQ(log.firstError(), "");
}

}  // namespace
}  // namespace corvane::host
