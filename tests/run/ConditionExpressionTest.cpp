#include "host/run/ConditionExpression.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "host/run/ConfigurationError.h"

namespace corvane::host {
namespace {

using ::testing::AllOf;
using ::testing::HasSubstr;

constexpr uint64_t writeBit = ownBit(ConditionedStep::write);
constexpr uint64_t atomicBit = ownBit(ConditionedStep::writeAtomic);
constexpr uint64_t trimBit = ownBit(ConditionedStep::trim);
constexpr uint64_t holdBit = uint64_t{1} << agentSteps;
constexpr uint64_t armedBit = holdBit << 1;

const ConditionNames& names() {
  static const ConditionNames known({"hold", "armed"});
  return known;
}

struct Masks {
  const char* text;
  uint64_t any;
  uint64_t all;
  uint64_t none;
  bool replace = false;
  const char* back = nullptr;  ///< the text of the condition, when it is another
};

void PrintTo(const Masks& masks, std::ostream* out) { *out << masks.text; }

class Expression : public ::testing::TestWithParam<Masks> {};

TEST_P(Expression, BecomesItsMasksAndItsTextAgain) {
  const Masks& masks = GetParam();
  const vdl::Condition condition = parseCondition(masks.text, names());
  EXPECT_EQ(condition.anyMask, masks.any);
  EXPECT_EQ(condition.allMask, masks.all);
  EXPECT_EQ(condition.noneMask, masks.none);
  EXPECT_EQ(condition.replace, masks.replace);

  const std::string text = conditionText(condition, names());
  EXPECT_EQ(text, masks.back != nullptr ? masks.back : masks.text);
  const vdl::Condition again = parseCondition(text, names());
  EXPECT_EQ(conditionText(again, names()), text);
  EXPECT_EQ(again.anyMask | again.allMask, masks.any | masks.all);
  EXPECT_EQ(again.noneMask, masks.none);
  EXPECT_EQ(again.replace, masks.replace);
}

const Masks expressions[] = {
    {"write", writeBit, 0, 0},
    {" \twrite ", writeBit, 0, 0, false, "write"},
    {"write & write", writeBit, 0, 0, false, "write"},
    {"write & armed", 0, writeBit | armedBit, 0},
    {"write & !hold", writeBit, 0, holdBit},
    {"!hold & write", writeBit, 0, holdBit, false, "write & !hold"},
    {"!hold", 0, 0, holdBit},
    {"!hold&!armed", 0, 0, holdBit | armedBit, false, "!hold & !armed"},
    {"write | atomic", writeBit | atomicBit, 0, 0},
    {"write|trim|atomic", writeBit | atomicBit | trimBit, 0, 0, false, "write | atomic | trim"},
    {"(write | atomic)", writeBit | atomicBit, 0, 0, false, "write | atomic"},
    {"(write | atomic) & !hold", writeBit | atomicBit, 0, holdBit},
    {"trim & (write | atomic) & !hold", writeBit | atomicBit, trimBit, holdBit, false,
     "(write | atomic) & trim & !hold"},
    {"(write) & armed", 0, writeBit | armedBit, 0, false, "write & armed"},
    {"(armed) & write", 0, writeBit | armedBit, 0, false, "write & armed"},
    {"(armed) & armed", armedBit, 0, 0, false, "armed"},
    {"(armed) & !hold", armedBit, 0, holdBit, false, "armed & !hold"},
    {"=write", writeBit, 0, 0, true},
    {"= write & armed & !hold", 0, writeBit | armedBit, holdBit, true, "=write & armed & !hold"},
    {"=!hold", 0, 0, holdBit, true},
};

INSTANTIATE_TEST_SUITE_P(All, Expression, ::testing::ValuesIn(expressions));

std::string complaintAbout(const std::string& text) {
  try {
    parseCondition(text, names());
  } catch (const ConfigurationError& error) {
    return error.what();
  }
  return "accepted";
}

class Inexpressible : public ::testing::TestWithParam<const char*> {};

TEST_P(Inexpressible, IsQuotedAndTheRightFormIsShown) {
  EXPECT_EQ(complaintAbout(GetParam()),
            "'" + std::string(GetParam()) +
                "' is no condition; join names with '&', or with '|', put at most one group in parentheses and '!' "
                "before single names only, as in '(write | atomic) & armed & !hold'");
}

INSTANTIATE_TEST_SUITE_P(All, Inexpressible,
                         ::testing::Values("(write | atomic) & (trim | hold)", "!hold | write", "write | !hold",
                                           "write | atomic & trim", "write & atomic | trim", "!(write | atomic)",
                                           "(write & atomic)", "(write | atomic) | trim", "(write", "write)", "()",
                                           "write atomic", "write &", "& write", "write && trim", "write || trim",
                                           "!!hold", "!", "write = trim", "==write", "(write | !hold)"));

TEST(ConditionExpression, AnEmptyTextNamesNothing) {
  EXPECT_EQ(complaintAbout(""), "'' names no condition; write one, as in 'write & !hold'");
  EXPECT_EQ(complaintAbout(" = "), "' = ' names no condition; write one, as in 'write & !hold'");
}

TEST(ConditionExpression, AnUnknownNameGetsTheNearestOne) {
  EXPECT_EQ(complaintAbout("wirte & !hold"), "'wirte' in 'wirte & !hold' is no condition; did you mean 'write'?");
  EXPECT_EQ(complaintAbout("write & !hodl"), "'hodl' in 'write & !hodl' is no condition; did you mean 'hold'?");
  EXPECT_THAT(
      complaintAbout("something"),
      AllOf(HasSubstr("'something' in 'something' is no condition; add it to the conditions of the test, or choose of"),
            HasSubstr("read, verify, write"), HasSubstr("hold, armed")));
}

TEST(ConditionExpression, ANameWantedBothWaysCanNeverHold) {
  EXPECT_EQ(complaintAbout("write & !hold & hold"),
            "'write & !hold & hold' can never hold, because it wants 'hold' set and not set; leave one of the two out");
  EXPECT_THAT(complaintAbout("(write | atomic) & !atomic & !write"), HasSubstr("wants 'write' and 'atomic' set"));
}

TEST(ConditionExpression, NothingConfiguredHasNoText) {
  EXPECT_EQ(conditionText({}, names()), "");
  EXPECT_EQ(conditionText({.replace = true}, names()), "");
}

TEST(ConditionExpression, AnAllMaskOfOneBitReadsLikeAnAnyMask) {
  EXPECT_EQ(conditionText({.allMask = writeBit}, names()), "write");
}

}  // namespace
}  // namespace corvane::host
