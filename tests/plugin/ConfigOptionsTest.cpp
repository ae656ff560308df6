#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "ConfigData.h"
#include "support_model/Allocations.h"
#include "support_model/ModelFramework.h"

namespace vdl {
namespace {

using modeltest::OptionCall;

/// Registers the options with a manager that takes them down, and frees the record.
class ConfigOptions : public testing::Test {
 public:
  ConfigOptions() { manager.impl = &state; }
  ~ConfigOptions() override {
    if (!state.calls.empty() && !freed) {
      Corvane::freeConfigData(state.calls[0].target);
    }
  }
  ConfigOptions(const ConfigOptions&) = delete;
  ConfigOptions& operator=(const ConfigOptions&) = delete;

 protected:
  Corvane::ConfigData& record() { return *static_cast<Corvane::ConfigData*>(state.calls.at(0).target); }
  const OptionCall& option(const std::string& name) const {
    for (const OptionCall& call : state.calls) {
      if (call.name == name) {
        return call;
      }
    }
    throw std::out_of_range(name);
  }

  ConfigManager manager;
  ConfigManager::Impl state;
  bool freed = false;
};

struct Expected {
  std::string kind;
  std::string name;
  std::string value;  ///< of the target when it is registered
};

TEST_F(ConfigOptions, AreRegisteredInOrderWithTheirDefaultsInPlace) {
  ASSERT_EQ(Corvane::initConfigData(&manager), 0);
  const std::string none = "0/0/0/keep";
  const std::vector<Expected> expected{{"record", "", ""},
                                       {"u32", "Min Queue Size", "2048"},
                                       {"u32", "Max Queue Size", "4096"},
                                       {"u32", "Random Seed", "0"},
                                       {"u32", "Bucket Count", "65536"},
                                       {"u32", "Trace Depth", "0"},
                                       {"bool", "Random Selection", "true"},
                                       {"bool", "Write Splice Detection", "false"},
                                       {"bool", "Slide Reads", "false"},
                                       {"bool", "Showstop on Miscompare", "false"},
                                       {"bool", "User Defined Data", "false"},
                                       {"bool", "Use Skip Commands", "false"},
                                       {"bool", "Always Dump Sequence", "false"},
                                       {"u32", "PowerToggle Freq", "300"},
                                       {"condition", "Read Condition", none},
                                       {"condition", "Verify Condition", none},
                                       {"condition", "Write Condition", none},
                                       {"condition", "WriteAtomic Condition", none},
                                       {"condition", "WriteSame Condition", none},
                                       {"condition", "Trim Condition", none},
                                       {"condition", "E2E Condition", none},
                                       {"condition", "PowerToggle Condition", none},
                                       {"condition", "SyncCache Condition", none},
                                       {"string", "Miscompare Output Path", "./datacompare"},
                                       {"buffer", "Data Buffer", "null/0/0/not owned"},
                                       {"bool", "Embed Data", "true"},
                                       {"bool", "Embed LBA", "true"},
                                       {"deprecate", "Embed LBA", ""},
                                       {"bool", "Cold Storage", "false"},
                                       {"deprecate", "Cold Storage", ""}};
  ASSERT_EQ(state.calls.size(), expected.size());
  for (size_t i = 0; i < expected.size(); ++i) {
    SCOPED_TRACE(expected[i].name);
    EXPECT_EQ(state.calls[i].kind, expected[i].kind);
    EXPECT_EQ(state.calls[i].name, expected[i].name);
    EXPECT_EQ(state.calls[i].valueAtRegistration, expected[i].value);
  }
}

TEST_F(ConfigOptions, TheRecordIsRegisteredWithItsSize) {
  ASSERT_EQ(Corvane::initConfigData(&manager), 0);
  EXPECT_NE(state.calls[0].target, nullptr);
  EXPECT_EQ(state.calls[0].max, sizeof(Corvane::ConfigData));
}

TEST_F(ConfigOptions, NumbersHaveTheirRanges) {
  ASSERT_EQ(Corvane::initConfigData(&manager), 0);
  const auto expectRange = [this](const char* name, uint64_t min, uint64_t max) {
    EXPECT_EQ(option(name).min, min) << name;
    EXPECT_EQ(option(name).max, max) << name;
  };
  expectRange("Min Queue Size", 1, 1'000'000);
  expectRange("Max Queue Size", 1, 1'000'000);
  expectRange("Random Seed", 0, 4'294'967'295);
  expectRange("Bucket Count", 1, 524'288);
  expectRange("Trace Depth", 0, 16'000'000);
  expectRange("PowerToggle Freq", 0, 1'000'000);
}

TEST_F(ConfigOptions, TargetsAreTheMembersOfTheRecord) {
  ASSERT_EQ(Corvane::initConfigData(&manager), 0);
  EXPECT_EQ(option("Min Queue Size").target, &record().minQueueSize);
  EXPECT_EQ(option("Max Queue Size").target, &record().maxQueueSize);
  EXPECT_EQ(option("Random Seed").target, &record().randomSeed);
  EXPECT_EQ(option("Bucket Count").target, &record().bucketCount);
  EXPECT_EQ(option("Trace Depth").target, &record().traceDepth);
  EXPECT_EQ(option("PowerToggle Freq").target, &record().powerToggleFreq);
  EXPECT_EQ(option("Random Selection").target, &record().randomSelection);
  EXPECT_EQ(option("Write Splice Detection").target, &record().writeSpliceDetection);
  EXPECT_EQ(option("Slide Reads").target, &record().slideReads);
  EXPECT_EQ(option("Showstop on Miscompare").target, &record().showstopOnMiscompare);
  EXPECT_EQ(option("User Defined Data").target, &record().userDefinedData);
  EXPECT_EQ(option("Use Skip Commands").target, &record().useSkipCommands);
  EXPECT_EQ(option("Always Dump Sequence").target, &record().alwaysDumpSequence);
  EXPECT_EQ(option("Embed Data").target, &record().embedData);
  EXPECT_EQ(option("Embed LBA").target, &record().embedLBA);
  EXPECT_EQ(option("Cold Storage").target, &record().coldStorage);
  EXPECT_EQ(option("Data Buffer").target, &record().dataBuffer);
  EXPECT_EQ(option("Miscompare Output Path").target, &record().miscompareOutputPath);
  EXPECT_EQ(option("Read Condition").target, &record().readCondition);
  EXPECT_EQ(option("Verify Condition").target, &record().verifyCondition);
  EXPECT_EQ(option("Write Condition").target, &record().writeCondition);
  EXPECT_EQ(option("WriteAtomic Condition").target, &record().writeAtomicCondition);
  EXPECT_EQ(option("WriteSame Condition").target, &record().writeSameCondition);
  EXPECT_EQ(option("Trim Condition").target, &record().trimCondition);
  EXPECT_EQ(option("E2E Condition").target, &record().e2eCondition);
  EXPECT_EQ(option("PowerToggle Condition").target, &record().powerToggleCondition);
  EXPECT_EQ(option("SyncCache Condition").target, &record().syncCacheCondition);
}

TEST_F(ConfigOptions, HelpKeepsItsSlips) {
  ASSERT_EQ(Corvane::initConfigData(&manager), 0);
  const auto helpHas = [this](const char* name, const char* part) {
    EXPECT_NE(option(name).help.find(part), std::string::npos) << name << ": " << option(name).help;
  };
  helpHas("Read Condition", "multile");
  helpHas("Read Condition", "chose which command to use.At least");
  helpHas("Write Condition", "to selected between");
  helpHas("Miscompare Output Path", "'_reference.bin is appended");
  helpHas("Miscompare Output Path", "./miscompare");
  helpHas("Embed Data", "setting this to false.Some");
  EXPECT_EQ(option("Data Buffer").help, "The user data.");
}

TEST_F(ConfigOptions, EveryOptionHasHelp) {
  ASSERT_EQ(Corvane::initConfigData(&manager), 0);
  for (size_t i = 1; i < state.calls.size(); ++i) {
    EXPECT_FALSE(state.calls[i].help.empty()) << state.calls[i].name;
  }
}

TEST_F(ConfigOptions, TheFirstFailureEndsTheRegistrationAndKeepsTheRecord) {
  state.failingCall = 6;  // the record's registration is the first call
  state.failure = -9;
  EXPECT_EQ(Corvane::initConfigData(&manager), -9);
  EXPECT_EQ(state.calls.size(), 6U);
  EXPECT_EQ(record().minQueueSize, 2048U);
}

TEST_F(ConfigOptions, ARecordThatIsNotTakenIsFreed) {
  freed = true;
  state.failingCall = 1;
  state.failure = -5;
  state.calls.reserve(4);
  const int64_t before = modeltest::liveAllocations();
  EXPECT_EQ(Corvane::initConfigData(&manager), -5);
  EXPECT_EQ(state.calls.size(), 1U);
  EXPECT_EQ(modeltest::liveAllocations(), before);
}

TEST_F(ConfigOptions, WithoutMemoryTheManagerIsNotCalled) {
  const modeltest::FailNothrow scarce(1, 1);
  EXPECT_EQ(Corvane::initConfigData(&manager), -1002);
  EXPECT_EQ(scarce.failed(), 1U);
  EXPECT_TRUE(state.calls.empty());
}

TEST(FreeConfigData, TakesNull) {
  const int64_t before = modeltest::liveAllocations();
  Corvane::freeConfigData(nullptr);
  EXPECT_EQ(modeltest::liveAllocations(), before);
}

TEST(FreeConfigData, FreesOwnedUserData) {
  const int64_t before = modeltest::liveAllocations();
  auto record = std::make_unique<Corvane::ConfigData>();
  ASSERT_EQ(record->dataBuffer.reserve(100), 0);
  Corvane::freeConfigData(record.release());
  EXPECT_EQ(modeltest::liveAllocations(), before);
}

TEST(FreeConfigData, LeavesUserDataOfOthersAlone) {
  uint8_t others[4] = {1, 2, 3, 4};
  auto record = std::make_unique<Corvane::ConfigData>();
  record->dataBuffer.data = others;
  record->dataBuffer.capacity = record->dataBuffer.size = sizeof(others);
  Corvane::freeConfigData(record.release());
  EXPECT_EQ(others[3], 4);
}

}  // namespace
}  // namespace vdl
