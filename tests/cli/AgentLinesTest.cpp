#include "host/cli/AgentLines.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdio>
#include <string>

namespace corvane::host {
namespace {

using ::testing::ElementsAre;

class AgentLinesTest : public ::testing::Test {
 public:
  ~AgentLinesTest() override { std::fclose(stream_); }

 protected:
  std::string printed() {
    std::fflush(stream_);
    std::rewind(stream_);
    std::string text(4096, '\0');
    text.resize(std::fread(text.data(), 1, text.size(), stream_));
    return text;
  }

  std::FILE* stream_ = std::tmpfile();
  Console console_{stream_, false, [] { return ScreenSize(); }};
  AgentLines lines_{console_};
};

TEST_F(AgentLinesTest, namesTheDriveOfAWarningAndOfAnError) {
  lines_.setDrives({"a", "b"});
  lines_.onAgentLine(1, 1, "careful");
  lines_.onAgentLine(0, 2, "broken");
  EXPECT_EQ(printed(), "warning: b: careful\nerror: a: broken\n");
  EXPECT_THAT(lines_.found(), ElementsAre(false, false));
}

TEST_F(AgentLinesTest, keepsInformationToItself) {
  lines_.setDrives({"a"});
  lines_.onAgentLine(0, 0, "Miscompare Detected at LBA 0");
  EXPECT_EQ(printed(), "");
  EXPECT_THAT(lines_.found(), ElementsAre(false));
}

TEST_F(AgentLinesTest, marksAFinding) {
  lines_.setDrives({"a"});
  lines_.onAgentLine(0, 2, "Miscompare Detected at LBA 0x10");
  EXPECT_EQ(printed(), "*** DATA FAILURE *** a: Miscompare Detected at LBA 0x10\n");
}

TEST_F(AgentLinesTest, aWarningIsNoFinding) {
  lines_.setDrives({"a"});
  lines_.onAgentLine(0, 1, "Miscompare was expected");
  EXPECT_EQ(printed(), "warning: a: Miscompare was expected\n");
  EXPECT_THAT(lines_.found(), ElementsAre(false));
}

TEST_F(AgentLinesTest, remembersWhichDrivesHaveFindings) {
  lines_.setDrives({"a", "b"});
  lines_.onAgentLine(0, 2, "Miscompare Detected at LBA 1");
  lines_.onAgentLine(0, 2, "Write Splice Detected at LBA 2");
  EXPECT_THAT(lines_.found(), ElementsAre(true, false));
  lines_.onAgentLine(1, 2, "execute(): atomic order (-1063)");
  EXPECT_THAT(lines_.found(), ElementsAre(true, true));
}

TEST_F(AgentLinesTest, copesWithADriveThatHasNoName) {
  lines_.onAgentLine(7, 2, "Miscompare Detected at LBA 1");
  EXPECT_EQ(printed(), "*** DATA FAILURE *** drive 7: Miscompare Detected at LBA 1\n");
}

TEST_F(AgentLinesTest, letsNoControlCharacterReachTheTerminal) {
  lines_.setDrives({"a"});
  lines_.onAgentLine(0, 1, "two\nlines\x1b[2J");
  EXPECT_EQ(printed(), "warning: a: two?lines?[2J\n");
}

TEST(AnnouncesFindingTest, knowsTheAgentsFindings) {
  EXPECT_TRUE(announcesFinding("Miscompare Detected at LBA 0x1"));
  EXPECT_TRUE(announcesFinding("Miscompare was expected"));
  EXPECT_TRUE(announcesFinding("Write Splice Detected"));
  EXPECT_TRUE(announcesFinding("Data match on invalidated block"));
  EXPECT_FALSE(announcesFinding("Miscompare Data Written To 'x'"));
  EXPECT_FALSE(announcesFinding("execute(): out of memory (-1002)"));
}

}  // namespace
}  // namespace corvane::host
