#include "HardError.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "support_model/ModelFramework.h"

namespace vdl::agent {
namespace {

using modeltest::senseScript;

/// The parser answers what a test scripts; the sense data themselves only have a length.
class CheckForHardError : public testing::Test {
 public:
  CheckForHardError() { senseScript = {}; }
  ~CheckForHardError() override { senseScript = {}; }
  CheckForHardError(const CheckForHardError&) = delete;
  CheckForHardError& operator=(const CheckForHardError&) = delete;

 protected:
  bool check(uint64_t bytes = 18) {
    Buffer sense;
    sense.data = memory;
    sense.size = sense.capacity = bytes;
    return checkForHardError(sense, kcq, uec, valid, lba);
  }

  uint8_t memory[18] = {};
  SenseParser::Kcq kcq{9, 9, 9};
  SenseParser::Uec uec = 9;
  uint8_t valid = 0;
  uint64_t lba = 99;
};

TEST_F(CheckForHardError, TooLittleSenseDataIsHardAndTouchesNothing) {
  for (const uint64_t bytes : {uint64_t{0}, uint64_t{7}}) {
    EXPECT_TRUE(check(bytes));
    EXPECT_TRUE(senseScript.calls.empty());
    EXPECT_EQ(kcq.key, 9);
    EXPECT_EQ(uec, 9);
    EXPECT_EQ(lba, 99U);
  }
}

TEST_F(CheckForHardError, ASizeWithoutBytesIsTooLittle) {
  Buffer sense;
  sense.size = sense.capacity = 18;
  EXPECT_TRUE(checkForHardError(sense, kcq, uec, valid, lba));
  EXPECT_TRUE(senseScript.calls.empty());
  EXPECT_EQ(kcq.key, 9);
}

TEST_F(CheckForHardError, EightBytesAreEnough) {
  senseScript.kcq.key = 1;
  EXPECT_FALSE(check(8));
}

TEST_F(CheckForHardError, OnlyARecoveredErrorIsNotHard) {
  for (uint8_t key = 0; key < 16; ++key) {
    senseScript.kcq.key = key;
    EXPECT_EQ(check(), key != 1) << int{key};
    EXPECT_EQ(kcq.key, key);
  }
}

TEST_F(CheckForHardError, AKeyThatCannotBeReadIsHard) {
  senseScript.keyStatus = -1;
  senseScript.kcq = {1, 2, 3};
  EXPECT_TRUE(check());
  EXPECT_EQ(kcq.key, 9);
}

TEST_F(CheckForHardError, CodeQualifierAndUnitErrorCodeAreReadForEveryKey) {
  senseScript.kcq = {1, 0x11, 0x22};
  senseScript.uec = 0xF7C3;
  check();
  EXPECT_EQ(kcq.code, 0x11);
  EXPECT_EQ(kcq.qual, 0x22);
  EXPECT_EQ(uec, 0xF7C3);
  EXPECT_EQ(senseScript.calls, (std::vector<std::string>{"key", "code", "qual", "uec"}));
}

TEST_F(CheckForHardError, OnlyAMediumErrorSaysWhichBlockFailed) {
  senseScript.valid = 1;
  senseScript.information = {0, 0, 0, 1, 2, 3, 4, 5};
  senseScript.kcq.key = 4;
  EXPECT_TRUE(check());
  EXPECT_EQ(lba, 99U);
  senseScript.kcq.key = 3;
  EXPECT_TRUE(check());
  EXPECT_EQ(valid, 1);
  EXPECT_EQ(lba, 0x0000000102030405U);
}

TEST_F(CheckForHardError, AMediumErrorWithoutTheValidBitLeavesTheBlock) {
  senseScript.kcq.key = 3;
  senseScript.information = {1, 2, 3, 4, 5, 6, 7, 8};
  EXPECT_TRUE(check());
  EXPECT_EQ(lba, 99U);
}

TEST_F(CheckForHardError, AllEightBytesOfTheInformationCount) {
  senseScript.kcq.key = 3;
  senseScript.valid = 1;
  senseScript.information = {0x11, 0x22, 0x33, 0x44, 0x55, 0x66, 0x77, 0x88};
  check();
  EXPECT_EQ(lba, 0x1122334455667788U);
}

TEST_F(CheckForHardError, AValidBitThatTheCallerSetHasTheBlockRead) {
  valid = 1;
  senseScript.kcq.key = 4;
  senseScript.information = {0, 0, 0, 0, 0, 0, 0, 5};
  EXPECT_TRUE(check());
  EXPECT_EQ(lba, 5U);
}

}  // namespace
}  // namespace vdl::agent
