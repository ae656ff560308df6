#include "host/run/AgentConfig.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

#include "host/run/ConditionSet.h"
#include "host/run/ConfigurationError.h"
#include "tests/run/FakeAgent.h"

namespace corvane::host {
namespace {

using ::testing::ElementsAre;
using testing::FakeAgent;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

class AgentConfigTest : public ::testing::Test {
 protected:
  std::string complaint(const TestDefinition& test) {
    AgentConfig config(table);
    try {
      config.apply(test, ConditionSet(test));
    } catch (const ConfigurationError& error) {
      return error.what();
    }
    return "accepted";
  }

  FakeAgent agent;
  vdl::AgentTable table = agent.table();
};

TEST_F(AgentConfigTest, FreesTheRecordAtTheEnd) {
  { const AgentConfig config(table); }
  EXPECT_THAT(agent.calls, ElementsAre("initConfigData", "freeConfigData"));
}

TEST_F(AgentConfigTest, AFailedRegistrationIsReportedAndItsRecordFreed) {
  agent.initConfigStatus = -9;
  EXPECT_THROW(AgentConfig config(table), ConfigurationError);
  EXPECT_THAT(agent.calls, ElementsAre("initConfigData", "freeConfigData"));
}

TEST_F(AgentConfigTest, SetsTheUsersOptionsSeedOutputAndConditions) {
  TestDefinition test;
  test.agentOptions = {{"Min Queue Size", "5"}, {"Max Queue Size", "0x10"}, {"Embed Data", "false"}};
  test.seed = 42;
  test.outputDirectory = "/tmp/out";
  AgentConfig config(table);
  EXPECT_THAT(config.apply(test, ConditionSet(test)), IsEmpty());
  EXPECT_EQ(agent.options.minQueueSize, 5U);
  EXPECT_EQ(agent.options.maxQueueSize, 16U);
  EXPECT_FALSE(agent.options.embedData);
  EXPECT_NE(agent.options.seed, 0U);
  EXPECT_EQ(agent.options.outputPath, "/tmp/out/datacompare");
  EXPECT_EQ(agent.options.conditions[0].anyMask, ConditionSet::readBit);
  EXPECT_EQ(agent.options.conditions[2].anyMask, ConditionSet::writeBit);
  EXPECT_EQ(agent.options.conditions[1].anyMask, 0U);
  const uint32_t seed = agent.options.seed;
  AgentConfig again(table);
  again.apply(test, ConditionSet(test));
  EXPECT_EQ(agent.options.seed, seed);
}

TEST_F(AgentConfigTest, TheUsersOwnSeedAndPathWin) {
  TestDefinition test;
  test.agentOptions = {{"Random Seed", "7"}, {"Miscompare Output Path", "here"}};
  test.outputDirectory = "/tmp/out/";
  AgentConfig config(table);
  config.apply(test, ConditionSet(test));
  EXPECT_EQ(agent.options.seed, 7U);
  EXPECT_EQ(agent.options.outputPath, "here");
}

TEST_F(AgentConfigTest, WithoutAnOutputDirectoryTheAgentsPathStays) {
  const TestDefinition test;
  AgentConfig config(table);
  config.apply(test, ConditionSet(test));
  EXPECT_EQ(agent.options.outputPath, "./datacompare");
}

TEST_F(AgentConfigTest, DeprecatedOptionsAreSaid) {
  TestDefinition test;
  test.agentOptions = {{"Embed LBA", "false"}};
  AgentConfig config(table);
  EXPECT_THAT(config.apply(test, ConditionSet(test)), ElementsAre("Embed LBA is deprecated"));
}

TEST_F(AgentConfigTest, UnknownOptionsAndBadValuesAreNamed) {
  TestDefinition test;
  test.agentOptions = {{"Min Queue Sise", "5"}};
  EXPECT_THAT(complaint(test), HasSubstr("Min Queue Sise"));
  test.agentOptions = {{"Min Queue Size", "0"}};
  EXPECT_THAT(complaint(test), HasSubstr("Min Queue Size"));
}

TEST_F(AgentConfigTest, ValuesAreReadBackAsTheyStand) {
  TestDefinition test;
  test.agentOptions = {{"Min Queue Size", "3"},         {"Max Queue Size", "4"},      {"Bucket Count", "99"},
                       {"PowerToggle Freq", "8"},       {"Use Skip Commands", "yes"}, {"Slide Reads", "on"},
                       {"Write Splice Detection", "1"}, {"User Defined Data", "true"}};
  AgentConfig config(table);
  config.apply(test, ConditionSet(test));
  const AgentOptionValues values = AgentOptionValues::of(config.options());
  EXPECT_EQ(values.minQueueSize, 3U);
  EXPECT_EQ(values.maxQueueSize, 4U);
  EXPECT_EQ(values.bucketCount, 99U);
  EXPECT_EQ(values.powerToggleFreq, 8U);
  EXPECT_TRUE(values.embedData);
  EXPECT_TRUE(values.skipCommands);
  EXPECT_TRUE(values.slideReads);
  EXPECT_TRUE(values.spliceDetection);
  EXPECT_TRUE(values.userDefinedData);
  EXPECT_EQ(config.options().set("Embed LBA", "false"), "");
  EXPECT_FALSE(AgentOptionValues::of(config.options()).embedData) << "Embed LBA false switches Embed Data off";
}

}  // namespace
}  // namespace corvane::host
