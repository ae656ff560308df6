#include "host/fault/FaultSpec.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

namespace corvane::host {
namespace {

/// Why a description is refused; empty when it is not.
std::string refusalOf(const std::string& text) {
  try {
    parseFaultSpec(text);
  } catch (const FaultSpecError& refusal) {
    return refusal.what();
  }
  return {};
}

TEST(FaultSpec, ARateStrikesAsOftenAsItComes) {
  const FaultSpec spec = parseFaultSpec("bit-flip-rest:rate=1e-4");
  EXPECT_EQ(spec.what, FaultClass::bitFlipRest);
  EXPECT_DOUBLE_EQ(spec.rate, 1e-4);
  EXPECT_EQ(spec.atCommand, 0U);
  EXPECT_EQ(spec.most, 0U);
  EXPECT_EQ(spec.drive, 0U);
}

TEST(FaultSpec, AMomentStrikesOnceUnlessSaidOtherwise) {
  EXPECT_EQ(parseFaultSpec("lost-write:at=command:100"),
            (FaultSpec{.what = FaultClass::lostWrite, .rate = 0, .atCommand = 100, .most = 1, .drive = 0}));
  EXPECT_EQ(parseFaultSpec("lost-write:at=command:100,most=7"),
            (FaultSpec{.what = FaultClass::lostWrite, .rate = 0, .atCommand = 100, .most = 7, .drive = 0}));
  EXPECT_EQ(parseFaultSpec("lost-write:most=7,at=command:100").most, 7U);
}

TEST(FaultSpec, EveryKeyCounts) {
  EXPECT_EQ(parseFaultSpec("cross-talk:drive=2,most=3,rate=0.5"),
            (FaultSpec{.what = FaultClass::crossTalk, .rate = 0.5, .atCommand = 0, .most = 3, .drive = 2}));
  EXPECT_EQ(parseFaultSpec("cross-talk:rate=1,drive=4294967295").drive, 4294967295U);
  EXPECT_EQ(parseFaultSpec("cross-talk:at=command:18446744073709551615").atCommand, UINT64_MAX);
}

TEST(FaultSpec, TheBordersOfAProbabilityBelongToIt) {
  EXPECT_EQ(parseFaultSpec("lost-write:rate=0").rate, 0.0);
  EXPECT_EQ(parseFaultSpec("lost-write:rate=1").rate, 1.0);
}

TEST(FaultSpec, TheTextReadsBack) {
  for (const char* text :
       {"lost-write:rate=1e-04", "lost-write:rate=0.25,most=3", "lost-write:rate=1,drive=2",
        "lost-write:rate=0,most=1,drive=1", "lost-write:at=command:1", "lost-write:at=command:1000,most=2,drive=3"}) {
    EXPECT_EQ(faultSpecText(parseFaultSpec(text)), text);
  }
  EXPECT_EQ(faultSpecText(parseFaultSpec("stale-read:drive=2,most=1,at=command:9")), "stale-read:at=command:9,drive=2");
}

TEST(FaultSpec, EveryClassGoesThereAndBack) {
  for (const FaultClassInfo& info : faultClasses()) {
    for (const FaultSpec& spec : {FaultSpec{.what = info.what, .rate = 1.0 / 3, .atCommand = 0, .most = 0, .drive = 0},
                                  FaultSpec{.what = info.what, .rate = 0, .atCommand = 12, .most = 1, .drive = 3},
                                  FaultSpec{.what = info.what, .rate = 0, .atCommand = 12, .most = 5, .drive = 0}}) {
      EXPECT_EQ(parseFaultSpec(faultSpecText(spec)), spec) << faultSpecText(spec);
    }
  }
}

TEST(FaultSpec, AnUnknownClassIsRefusedWithTheNearestName) {
  EXPECT_EQ(refusalOf("lost-wrte:rate=1"),
            "fault 'lost-wrte:rate=1': 'lost-wrte' is not a class of faults; 'corvane faults' lists them; did you mean "
            "'lost-write'?");
  EXPECT_EQ(refusalOf("gremlins"),
            "fault 'gremlins': 'gremlins' is not a class of faults; 'corvane faults' lists them");
  EXPECT_EQ(refusalOf(""), "fault '': '' is not a class of faults; 'corvane faults' lists them");
}

TEST(FaultSpec, AnUnknownKeyIsRefusedWithTheNearestName) {
  EXPECT_EQ(refusalOf("lost-write:rat=1"),
            "fault 'lost-write:rat=1': 'rat' is not a key; there are rate, at, most and drive; did you mean 'rate'?");
  EXPECT_EQ(refusalOf("lost-write:rate=1,probability=2"),
            "fault 'lost-write:rate=1,probability=2': 'probability' is not a key; there are rate, at, most and drive");
}

TEST(FaultSpec, APairNeedsItsEqualsSign) {
  EXPECT_EQ(refusalOf("lost-write:rate"), "fault 'lost-write:rate': 'rate' is not of the form key=value");
  EXPECT_EQ(refusalOf("lost-write:rate=1,,most=2"),
            "fault 'lost-write:rate=1,,most=2': '' is not of the form key=value");
}

TEST(FaultSpec, ARateIsAProbability) {
  for (const char* rate : {"-0.1", "1.0001", "nan", "inf", "often", "", "0.5x", "1 "}) {
    const std::string text = std::string("lost-write:rate=") + rate;
    EXPECT_EQ(refusalOf(text),
              "fault '" + text + "': rate '" + rate + "' is not a probability; give a number from 0 to 1, as in 1e-4");
  }
}

TEST(FaultSpec, AMomentIsACommand) {
  for (const char* at : {"100", "second:3", "command", ""}) {
    const std::string text = std::string("lost-write:at=") + at;
    EXPECT_EQ(refusalOf(text), "fault '" + text + "': at '" + at + "' is not a moment; give at=command:N");
  }
}

TEST(FaultSpec, NumbersAreWholeAndNotZero) {
  for (const char* number : {"0", "-1", "1.5", "x", "", "18446744073709551616"}) {
    const std::string at = std::string("lost-write:at=command:") + number;
    EXPECT_EQ(refusalOf(at), "fault '" + at + "': at=command '" + number + "' is not a whole number from 1");
    const std::string most = std::string("lost-write:rate=1,most=") + number;
    EXPECT_EQ(refusalOf(most), "fault '" + most + "': most '" + number + "' is not a whole number from 1");
    const std::string drive = std::string("lost-write:rate=1,drive=") + number;
    EXPECT_EQ(refusalOf(drive), "fault '" + drive + "': drive '" + number + "' is not a whole number from 1");
  }
  EXPECT_EQ(refusalOf("lost-write:rate=1,drive=4294967296"),
            "fault 'lost-write:rate=1,drive=4294967296': drive '4294967296' is not a whole number from 1");
}

TEST(FaultSpec, RateAndMomentExcludeEachOther) {
  EXPECT_EQ(refusalOf("lost-write:rate=0,at=command:1"),
            "fault 'lost-write:rate=0,at=command:1': rate and at exclude each other; give one");
}

TEST(FaultSpec, OneOfRateAndMomentIsNeeded) {
  for (const char* text : {"lost-write", "lost-write:", "lost-write:most=3", "lost-write:drive=1"}) {
    EXPECT_EQ(refusalOf(text),
              std::string("fault '") + text + "': it is not said when; add :rate=1e-4 or :at=command:1000");
  }
}

TEST(FaultSpec, TheHelpHasALineForEveryClass) {
  const std::string help = faultClassesHelp();
  size_t from = 0;
  for (const FaultClassInfo& info : faultClasses()) {
    const size_t end = help.find('\n', from);
    ASSERT_NE(end, std::string::npos) << info.name;
    const std::string line = help.substr(from, end - from);
    EXPECT_THAT(line, testing::StartsWith("  " + std::string(info.name) + " "));
    EXPECT_THAT(line, testing::EndsWith(std::string(" ") + info.help));
    from = end + 1;
  }
  EXPECT_EQ(from, help.size());
}

}  // namespace
}  // namespace corvane::host
