#include "host/run/ConditionNames.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <stdexcept>

#include "host/run/ConfigurationError.h"

namespace corvane::host {
namespace {

using ::testing::ElementsAre;

std::string complaintAbout(const std::vector<std::string>& further) {
  try {
    const ConditionNames names(further);
  } catch (const ConfigurationError& error) {
    return error.what();
  }
  return "accepted";
}

TEST(ConditionNames, EveryStepIsFoundByItsName) {
  for (const ConditionedStep step : allConditionedSteps()) {
    EXPECT_EQ(stepNamed(stepName(step)), step);
  }
  try {
    stepNamed("zonereset");
    FAIL();
  } catch (const ConfigurationError& error) {
    EXPECT_STREQ(error.what(), "'zonereset' is no step of a test; did you mean 'zone-reset'?");
  }
}

TEST(ConditionNames, CommandsAndTheirStepsBelongTogether) {
  for (const ConditionedStep step : allConditionedSteps()) {
    if (const std::optional<CommandKind> kind = kindOf(step); kind && isAgentStep(step)) {
      EXPECT_EQ(stepOf(*kind), step);
    }
  }
  EXPECT_THROW(stepOf(CommandKind::zoneReset), std::logic_error);
  EXPECT_THROW(stepOf(CommandKind::invalidate), std::logic_error);
  EXPECT_EQ(kindOf(ConditionedStep::powerToggle), std::nullopt);
}

TEST(ConditionNames, FurtherNamesGetTheBitsBehindTheSteps) {
  const ConditionNames names({"hold", "quiet_2", "A-b"});
  EXPECT_EQ(names.bitOf("read", "x"), 1U);
  EXPECT_EQ(names.bitOf("sync", "x"), ownBit(ConditionedStep::syncCache));
  EXPECT_EQ(names.bitOf("hold", "x"), uint64_t{1} << 9);
  EXPECT_EQ(names.bitOf("A-b", "x"), uint64_t{1} << 11);
  EXPECT_EQ(names.allBits(), (uint64_t{1} << 12) - 1);
  EXPECT_THAT(names.namesOf(names.bitOf("hold", "") | names.bitOf("write", "")), ElementsAre("write", "hold"));
  EXPECT_EQ(names.listOf(0b100), "'write'");
  EXPECT_EQ(names.listOf(0b1100), "'write' and 'atomic'");
  EXPECT_EQ(names.listOf(0b101100), "'write', 'atomic' and 'trim'");
}

TEST(ConditionNames, WrongNamesAreRefused) {
  EXPECT_EQ(complaintAbout({"2nd"}),
            "'2nd' cannot name a condition; begin with a letter and use letters, digits, '_' and '-'");
  EXPECT_EQ(complaintAbout({""}),
            "'' cannot name a condition; begin with a letter and use letters, digits, '_' and '-'");
  EXPECT_EQ(complaintAbout({"a|b"}),
            "'a|b' cannot name a condition; begin with a letter and use letters, digits, '_' and '-'");
  EXPECT_EQ(complaintAbout({"write"}), "a condition cannot be named 'write', which is a step's name; choose another");
  EXPECT_EQ(complaintAbout({"reset"}), "a condition cannot be named 'reset', which is a step's name; choose another");
  EXPECT_EQ(complaintAbout({"hold", "hold"}), "the condition 'hold' is named twice; name it once");
}

TEST(ConditionNames, SixtyFourBitsAreAllThereAre) {
  std::vector<std::string> further;
  for (uint32_t i = agentSteps; i < mostConditions; ++i) {
    further.push_back("c" + std::to_string(i));
  }
  EXPECT_EQ(ConditionNames(further).allBits(), ~uint64_t{0});
  EXPECT_EQ(ConditionNames(further).bitOf("c63", ""), uint64_t{1} << 63);
  further.emplace_back("last");
  EXPECT_EQ(complaintAbout(further), "the condition 'last' is one too many; a test has at most 55 of its own");
}

}  // namespace
}  // namespace corvane::host
