#include "host/cli/ValueParsers.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

#include "host/cli/UsageError.h"

namespace corvane::host {
namespace {

using ::testing::AllOf;
using ::testing::HasSubstr;
using ::testing::StartsWith;

template <typename Parse>
std::string refusal(Parse parse) {
  try {
    parse();
  } catch (const UsageError& error) {
    return error.what();
  }
  return "accepted";
}

std::string countRefusal(const char* text) {
  return refusal([text] { parseCount("--n", text); });
}

TEST(ParseCountTest, readsNumbersWithExponentsAndUnits) {
  EXPECT_EQ(parseCount("--n", "2000"), 2000);
  EXPECT_EQ(parseCount("--n", "1e6"), 1'000'000);
  EXPECT_EQ(parseCount("--n", "2.5e3"), 2500);
  EXPECT_EQ(parseCount("--n", "2m"), 2'000'000);
  EXPECT_EQ(parseCount("--n", "1.5k"), 1500);
  EXPECT_EQ(parseCount("--n", "3G"), 3'000'000'000);
  EXPECT_EQ(parseCount("--n", "18446744073709551615"), 18446744073709551615U);
  EXPECT_EQ(parseCount("--n", "0e9"), 0);
}

TEST(ParseCountTest, refusesWhatIsNoWholeNumber) {
  for (const char* text : {"", "x", "-1", "+1", "1.5", "1.", ".", "1e", "1e31", "1 k", "12kk", "0x10", "1e-3"}) {
    EXPECT_THAT(countRefusal(text), AllOf(StartsWith("--n '" + std::string(text) + "' is no count"),
                                          HasSubstr("a whole number such as 2000")));
  }
}

TEST(ParseCountTest, refusesWhatDoesNotFit) {
  EXPECT_THAT(countRefusal("18446744073709551616"), HasSubstr("is no count"));
  EXPECT_THAT(countRefusal("99999999999999g"), HasSubstr("is no count"));
}

TEST(ParseCountTest, namesTheLimitThatIsMissed) {
  EXPECT_EQ(parseCount("--n", "1", 1, 8), 1);
  EXPECT_EQ(parseCount("--n", "8", 1, 8), 8);
  EXPECT_EQ(refusal([] { parseCount("--n", "0", 1, 8); }), "--n '0' is too small; the least is 1");
  EXPECT_EQ(refusal([] { parseCount("--n", "9", 1, 8); }), "--n '9' is too large; the most is 8");
  EXPECT_EQ(refusal([] { parseCount32("--n", "4294967296"); }),
            "--n '4294967296' is too large; the most is 4294967295");
  EXPECT_EQ(parseCount32("--n", "4294967295"), 4294967295U);
}

TEST(ParseNumberTest, readsHexadecimalToo) {
  EXPECT_EQ(parseNumber("--seed", "0x1F"), 31);
  EXPECT_EQ(parseNumber("--seed", "0XffffFFFFffffFFFF"), 18446744073709551615U);
  EXPECT_EQ(parseNumber("--seed", "7"), 7);
  for (const char* text : {"0x", "0xg", "0x1ffffffffffffffff", "0x-1"}) {
    EXPECT_THAT(refusal([text] { parseNumber("--seed", text); }), HasSubstr("hexadecimal digits")) << text;
  }
}

TEST(ParseDurationTest, readsEveryUnit) {
  EXPECT_EQ(parseDurationMs("--time", "500ms"), 500);
  EXPECT_EQ(parseDurationMs("--time", "30s"), 30'000);
  EXPECT_EQ(parseDurationMs("--time", "1.5m"), 90'000);
  EXPECT_EQ(parseDurationMs("--time", "2h"), 7'200'000);
  EXPECT_EQ(parseDurationMs("--time", "1d"), 86'400'000);
}

TEST(ParseDurationTest, saysWhatIsWrong) {
  const auto of = [](const char* text) { return refusal([text] { parseDurationMs("--time", text); }); };
  EXPECT_THAT(of("30"), HasSubstr("has no unit; give a time with its unit"));
  EXPECT_THAT(of("30 s"), HasSubstr("is no time"));
  EXPECT_THAT(of("s"), HasSubstr("is no time"));
  EXPECT_THAT(of("0s"), HasSubstr("leaves no time to test"));
  EXPECT_THAT(of("0.1ms"), HasSubstr("finer than a millisecond"));
  EXPECT_THAT(of("999999999999999d"), HasSubstr("is too long"));
  EXPECT_THAT(of("1000001d"), HasSubstr("is too long; give at most 1000000d"));
}

TEST(ParseDurationTest, readsItsOwnText) {
  for (const uint64_t ms : {1U, 999U, 1000U, 1500U, 90'000U, 3'600'000U, 86'400'000U}) {
    EXPECT_EQ(parseDurationMs("--time", durationFlagText(ms)), ms);
  }
  EXPECT_EQ(durationFlagText(120'000), "2m");
}

TEST(ParseBlockRangeTest, includesBothEnds) {
  const BlockRange range = parseBlockRange("--xfer", "8..64");
  EXPECT_EQ(range.min, 8U);
  EXPECT_EQ(range.max, 64U);
  const BlockRange one = parseBlockRange("--xfer", "8");
  EXPECT_EQ(one.min, 8U);
  EXPECT_EQ(one.max, 8U);
}

TEST(ParseBlockRangeTest, saysWhatIsWrong) {
  const auto of = [](const char* text) { return refusal([text] { parseBlockRange("--xfer", text); }); };
  EXPECT_THAT(of("0..8"), HasSubstr("begins with 0 blocks; the shortest length is 1"));
  EXPECT_THAT(of("8..1"), HasSubstr("wrong way round; give MIN..MAX"));
  EXPECT_THAT(of("1-8"), HasSubstr("is no range of lengths"));
  EXPECT_THAT(of("1.."), HasSubstr("is no range of lengths"));
  EXPECT_THAT(of("1..5e9"), HasSubstr("is too large; the most is 4294967295"));
}

TEST(ParseBlockRangeTest, takesNoUnitsBecauseBlocksDifferBetweenDrives) {
  for (const char* text : {"4k", "4k..64k", "1..2M", "1..64b", "1..5%"}) {
    EXPECT_THAT(
        refusal([text] { parseBlockRange("--xfer", text); }),
        HasSubstr("has a unit, but blocks are counted, whose size is each drive's own; give MIN..MAX in blocks"))
        << text;
  }
  EXPECT_EQ(parseBlockRange("--xfer", "1..1e3").max, 1000U);
}

TEST(ParseDriveShareTest, readsBytesWithBinaryUnitsAndShares) {
  EXPECT_EQ(parseDriveShare("--size", "4096").bytes, 4096U);
  EXPECT_EQ(parseDriveShare("--size", "4k").bytes, 4096U);
  EXPECT_EQ(parseDriveShare("--size", "1G").bytes, 1U << 30);
  EXPECT_EQ(parseDriveShare("--size", "2t").bytes, 2ULL << 40);
  EXPECT_EQ(parseDriveShare("--size", "10%").milliPercent, 10'000U);
  EXPECT_EQ(parseDriveShare("--size", "0.125%").milliPercent, 125U);
  EXPECT_EQ(parseDriveShare("--size", "100%").milliPercent, 100'000U);
}

TEST(ParseDriveShareTest, saysWhatIsWrong) {
  const auto of = [](const char* text) { return refusal([text] { parseDriveShare("--size", text); }); };
  EXPECT_THAT(of("big"), HasSubstr("--size 'big' is no size; give bytes such as 64k"));
  EXPECT_THAT(of("1.5g"), HasSubstr("is no size"));
  EXPECT_THAT(of("0"), HasSubstr("leaves nothing to test"));
  EXPECT_THAT(of("0%"), HasSubstr("leaves nothing to test"));
  EXPECT_THAT(of("101%"), HasSubstr("is no share of a drive; give 0.001% to 100%"));
  EXPECT_THAT(of("0.0001%"), HasSubstr("is no share of a drive"));
  EXPECT_THAT(of("99999999999t"), HasSubstr("is no size"));
}

TEST(ParseDriveShareTest, readsItsOwnText) {
  for (const char* text : {"512", "1k", "1536", "3m", "64g", "2t", "10%", "0.5%", "12.125%", "100%"}) {
    EXPECT_EQ(driveShareText(parseDriveShare("--size", text)), text);
  }
  EXPECT_EQ(driveShareText({.bytes = 2048}), "2k");
}

TEST(ParseLbaRangeTest, excludesTheEnd) {
  const LbaRange range = parseLbaRange("--range", "0x10..1k");
  EXPECT_EQ(range.first, 16U);
  EXPECT_EQ(range.end, 1000U);
  const LbaRange open = parseLbaRange("--range", "5..");
  EXPECT_EQ(open.first, 5U);
  EXPECT_EQ(open.end, 0U);
}

TEST(ParseLbaRangeTest, saysWhatIsWrong) {
  const auto of = [](const char* text) { return refusal([text] { parseLbaRange("--range", text); }); };
  EXPECT_THAT(of("5..5"), HasSubstr("is empty; give FIRST..END"));
  EXPECT_THAT(of("5"), HasSubstr("is no range of LBAs"));
  EXPECT_THAT(of("..5"), HasSubstr("is no range of LBAs"));
}

TEST(ParseCommandMixTest, givesKindsTheirWeights) {
  const CommandMix mix = parseCommandMix("--commands-of", "write=3, trim ,atomic=1k,verify");
  EXPECT_EQ(mix.write, 3U);
  EXPECT_EQ(mix.trim, 1U);
  EXPECT_EQ(mix.writeAtomic, 1000U);
  EXPECT_EQ(mix.verify, 1U);
  EXPECT_EQ(mix.read, 0U);
  EXPECT_EQ(mix.writeSame, 0U);
}

TEST(ParseCommandMixTest, saysWhatIsWrong) {
  const auto of = [](const char* text) { return refusal([text] { parseCommandMix("--commands-of", text); }); };
  EXPECT_THAT(of("wrte,read"), AllOf(HasSubstr("unknown kind 'wrte'"), HasSubstr("did you mean 'write'?")));
  EXPECT_THAT(of("read,read"), HasSubstr("names read twice"));
  EXPECT_THAT(of("write=0"), HasSubstr("accepted are 1 to 1000000"));
  EXPECT_THAT(of("write=x"), HasSubstr("no usable weight"));
  EXPECT_THAT(of("write,"), HasSubstr("unknown kind ''"));
  EXPECT_THAT(of("sync"), HasSubstr("unknown kind 'sync'"));
}

TEST(ParseCommandMixTest, readsItsOwnText) {
  const CommandMix mix = parseCommandMix("--commands-of", "read,verify=2,write=3,writesame");
  EXPECT_EQ(commandMixText(mix), "write=3,writesame,read,verify=2");
  EXPECT_EQ(commandMixText(parseCommandMix("--commands-of", commandMixText(mix))), commandMixText(mix));
}

TEST(ParsePercentTest, takesNoughtToAHundred) {
  EXPECT_EQ(parsePercent("--e2e", "0"), 0U);
  EXPECT_EQ(parsePercent("--e2e", "100%"), 100U);
  EXPECT_EQ(refusal([] { parsePercent("--e2e", "101"); }), "--e2e '101' is no percentage; give 0 to 100");
}

TEST(ParsePowerToggleTest, readsItsOwnText) {
  for (const PowerToggle toggle : {PowerToggle::off, PowerToggle::withoutSync, PowerToggle::withSync}) {
    EXPECT_EQ(parsePowerToggle("--power-toggle", powerToggleText(toggle)), toggle);
  }
  EXPECT_THAT(refusal([] { parsePowerToggle("--power-toggle", "on"); }),
              AllOf(HasSubstr("'on' is not known"), HasSubstr("choose off, nosync"), HasSubstr("sync (flush")));
}

TEST(ParseOptionSettingTest, splitsAtTheFirstEqualsSign) {
  EXPECT_EQ(parseOptionSetting("--set", " Min Queue Size = 12 "),
            std::make_pair(std::string("Min Queue Size"), std::string("12")));
  EXPECT_EQ(parseOptionSetting("--set", "A=b=c").second, "b=c");
  EXPECT_EQ(parseOptionSetting("--set", "A=").second, "");
  EXPECT_THAT(refusal([] { parseOptionSetting("--set", "A"); }),
              HasSubstr("'A' sets nothing; give \"Option Name=value\""));
  EXPECT_THAT(refusal([] { parseOptionSetting("--set", "=1"); }), HasSubstr("sets nothing"));
}

}  // namespace
}  // namespace corvane::host
