#include "host/selftest/Verdict.h"

#include <gtest/gtest.h>

#include <set>

namespace corvane::host {
namespace {

constexpr JudgedTest usual{.maxSpan = 16, .looksForSplices = true, .slidesReads = false};

/// A lost write of 8 blocks at LBA 100 whose last two blocks differ.
Injection lostWrite() {
  Injection injection;
  injection.what = FaultClass::lostWrite;
  injection.command = 70;
  injection.lba = 100;
  injection.blocks = 8;
  injection.altered = {{.lba = 106, .was = {1}, .is = {2}}, {.lba = 107, .was = {3}, .is = {4}}};
  return injection;
}

Injection handedOut(Injection injection, uint64_t visible) {
  injection.delivered = 2;
  injection.visible = visible;
  return injection;
}

RunResult resultOf(std::vector<Injection> injections, RunStatus status = RunStatus::clean) {
  RunResult result;
  DriveResult& drive = result.drives.emplace_back();
  drive.status = result.status = status;
  drive.injections = std::move(injections);
  return result;
}

RunResult findingOf(std::vector<Injection> injections, int32_t agentStatus, std::optional<uint64_t> lba) {
  RunResult result = resultOf(std::move(injections), RunStatus::dataFailure);
  result.drives[0].agentStatus = agentStatus;
  result.drives[0].findingLba = lba;
  result.drives[0].error = "what the agent said";
  return result;
}

Verdict verdictOf(const RunResult& result, FaultClass what = FaultClass::lostWrite, JudgedTest test = usual) {
  return judge(what, result, test).verdict;
}

TEST(Verdict, AFaultThatNeverStruckHadNoOpportunity) { EXPECT_EQ(verdictOf(resultOf({})), Verdict::idle); }

TEST(Verdict, WhatWasToBeSeenAndIsNotSaidIsMissed) {
  const Judgement judgement = judge(FaultClass::lostWrite, resultOf({handedOut(lostWrite(), 1)}), usual);
  EXPECT_EQ(judgement.verdict, Verdict::missed);
  EXPECT_EQ(judgement.reason, "");
}

TEST(Verdict, WhatNobodyHadToNoticeIsMaskedForTheReasonInTheLedger) {
  std::set<std::string> reasons;
  const auto masked = [&reasons](const Injection& injection) {
    const Judgement judgement = judge(FaultClass::lostWrite, resultOf({injection}), usual);
    EXPECT_EQ(judgement.verdict, Verdict::masked);
    reasons.insert(judgement.reason);
  };
  masked(lostWrite());
  masked(handedOut(lostWrite(), 0));
  Injection overwritten = lostWrite();
  overwritten.overwritten = 2;
  masked(overwritten);
  Injection interrupted = lostWrite();
  interrupted.interrupted = 1;
  masked(interrupted);
  Injection preRead = handedOut(lostWrite(), 0);
  preRead.preReads = 1;
  masked(preRead);
  EXPECT_EQ(reasons.size(), 5U);
}

TEST(Verdict, AFindingAtAnAlteredBlockUnderItsNameIsNamed) {
  EXPECT_EQ(verdictOf(findingOf({handedOut(lostWrite(), 1)}, -1046, 106)), Verdict::named);
  EXPECT_EQ(verdictOf(findingOf({handedOut(lostWrite(), 1)}, -1062, 106)), Verdict::found);
}

TEST(Verdict, AFindingOfACommandOverAnAlteredBlockCounts) {
  EXPECT_EQ(verdictOf(findingOf({handedOut(lostWrite(), 1)}, -1046, 92)), Verdict::named);
  EXPECT_EQ(verdictOf(findingOf({handedOut(lostWrite(), 1)}, -1046, 90)), Verdict::falseAlarm);
}

TEST(Verdict, AFindingElsewhereIsAFalseAlarm) {
  EXPECT_EQ(verdictOf(findingOf({handedOut(lostWrite(), 1)}, -1046, 108)), Verdict::falseAlarm);
  EXPECT_EQ(verdictOf(findingOf({handedOut(lostWrite(), 1)}, -1046, std::nullopt)), Verdict::falseAlarm);
  EXPECT_EQ(judge(FaultClass::lostWrite, findingOf({}, -1046, 3), usual).reason, "what the agent said");
}

TEST(Verdict, AFindingBeforeAnythingWrongWasHandedOutIsAFalseAlarm) {
  EXPECT_EQ(verdictOf(findingOf({lostWrite()}, -1046, 106)), Verdict::falseAlarm);
}

TEST(Verdict, AnErrorOfTheTestItselfIsNoVerdictOnTheDrive) {
  EXPECT_EQ(verdictOf(resultOf({handedOut(lostWrite(), 1)}, RunStatus::internal)), Verdict::broken);
  EXPECT_EQ(verdictOf(resultOf({}, RunStatus::drive)), Verdict::broken);
}

TEST(Verdict, ALyingVerifyIsExcusedOnlyWhereNobodyElseLooked) {
  Injection injection = handedOut(lostWrite(), 2);
  injection.what = FaultClass::verifyAlwaysEqual;
  injection.visibleVerify = 2;
  EXPECT_EQ(verdictOf(resultOf({injection}), injection.what), Verdict::explained);
  injection.visibleVerify = 1;
  EXPECT_EQ(verdictOf(resultOf({injection}), injection.what), Verdict::missed);
}

TEST(Verdict, ASpliceIsExcusedOnlyWhereNobodyLooksForSplices) {
  Injection injection = handedOut(lostWrite(), 1);
  injection.what = FaultClass::writeSplice;
  EXPECT_EQ(verdictOf(resultOf({injection}), injection.what), Verdict::missed);
  EXPECT_EQ(
      verdictOf(resultOf({injection}), injection.what, {.maxSpan = 16, .looksForSplices = false, .slidesReads = false}),
      Verdict::explained);
}

TEST(Verdict, ATearOverContentThatNobodyRecognisesIsExcused) {
  Injection injection = handedOut(lostWrite(), 0);
  injection.what = FaultClass::atomicTear;
  injection.blind = 2;
  injection.blindness = "why";
  const Judgement judgement = judge(injection.what, resultOf({injection}), usual);
  EXPECT_EQ(judgement.verdict, Verdict::explained);
  EXPECT_EQ(judgement.reason, "why");
  injection.visible = 1;
  EXPECT_EQ(verdictOf(resultOf({injection}), injection.what), Verdict::missed);
}

TEST(Verdict, ASlidReadIsAnExcuseOnlyWhereReadsSlideAndEveryLookWasInDoubt) {
  constexpr JudgedTest sliding{.maxSpan = 16, .looksForSplices = true, .slidesReads = true};
  Injection injection = handedOut(lostWrite(), 2);
  injection.visiblePartly = 2;
  EXPECT_EQ(verdictOf(resultOf({injection}), injection.what, sliding), Verdict::explained);
  EXPECT_EQ(verdictOf(resultOf({injection}), injection.what), Verdict::missed);
  injection.visiblePartly = 1;
  EXPECT_EQ(verdictOf(resultOf({injection}), injection.what, sliding), Verdict::missed);
}

TEST(Verdict, EachSymptomHasItsStatus) {
  EXPECT_EQ(statusNaming(FaultClass::lostWrite), -1046);
  EXPECT_EQ(statusNaming(FaultClass::writeSplice), -1062);
  EXPECT_EQ(statusNaming(FaultClass::atomicTear), -1063);
}

TEST(Verdict, TheFindingDriveDecidesWhicheverItIs) {
  RunResult result = resultOf({});
  const RunResult second = findingOf({handedOut(lostWrite(), 1)}, -1046, 107);
  result.drives.push_back(second.drives[0]);
  EXPECT_EQ(verdictOf(result), Verdict::named);
}

TEST(Verdict, EveryVerdictHasItsOwnName) {
  std::set<std::string> names;
  for (size_t verdict = 0; verdict < verdicts; ++verdict) {
    names.insert(verdictName(static_cast<Verdict>(verdict)));
  }
  EXPECT_EQ(names.size(), verdicts);
}

}  // namespace
}  // namespace corvane::host
