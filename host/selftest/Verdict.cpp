#include "host/selftest/Verdict.h"

#include <algorithm>
#include <array>
#include <vector>

#include "vdl/Status.h"

namespace corvane::host {
namespace {

bool within(uint64_t lba, uint64_t first, uint64_t end) { return lba >= first && lba < end; }

/// Whether a finding at this LBA can be about this injection: about an altered block, about a verify over one, or
/// about the struck command as a whole.
bool isAbout(const Injection& injection, uint64_t findingLba, uint64_t maxSpan) {
  const bool ofBlocks = std::ranges::any_of(injection.altered, [&](const AlteredBlock& block) {
    return within(block.lba, findingLba, findingLba + maxSpan);
  });
  return ofBlocks || within(findingLba, injection.lba, injection.endLba());
}

/// A reason for a miss that lies in the rules by which the agent judges; empty when there is none.
std::string ruleBehind(const Injection& injection, const JudgedTest& test) {
  if (test.slidesReads && injection.visible == injection.visiblePartly) {
    return "a slid read gave the rest of the write up";
  }
  switch (injection.what) {
    case FaultClass::verifyAlwaysEqual:
      return injection.visible == injection.visibleVerify ? "only the lying verify looked" : "";
    case FaultClass::zoneResetIgnored:
      return "content after a zone reset is unknown";
    case FaultClass::writeSplice:
      return test.looksForSplices ? "" : "\"Write Splice Detection\" is off";
    default:
      return {};
  }
}

std::string whyMasked(const Injection& injection) {
  if (injection.preReads != 0) {
    return "taken as the old content by the read ahead of an atomic write";
  }
  if (injection.delivered != 0) {
    return "handed out only where no write waited for its check";
  }
  if (injection.overwritten != 0) {
    return "overwritten before anybody looked";
  }
  if (injection.interrupted != 0) {
    return "under a command that failed, so unknown";
  }
  return "not read before the test ended";
}

Judgement judgeClean(const std::vector<const Injection*>& injections, const JudgedTest& test) {
  if (injections.empty()) {
    return {Verdict::idle, {}};
  }
  const auto visible = std::ranges::find_if(injections, [](const Injection* one) { return one->visible != 0; });
  if (visible == injections.end()) {
    if (const auto blind = std::ranges::find_if(injections, [](const Injection* one) { return one->blind != 0; });
        blind != injections.end()) {
      return {Verdict::explained, (*blind)->blindness};
    }
    return {Verdict::masked, whyMasked(*injections.front())};
  }
  const std::string rule = ruleBehind(**visible, test);
  return {rule.empty() ? Verdict::missed : Verdict::explained, rule};
}

Judgement judgeFinding(const DriveResult& drive, FaultClass what, uint64_t maxSpan) {
  for (const Injection& injection : drive.injections) {
    const bool handedOut = injection.delivered != 0;
    if (handedOut && drive.findingLba && isAbout(injection, *drive.findingLba, maxSpan)) {
      return {drive.agentStatus == statusNaming(what) ? Verdict::named : Verdict::found, {}};
    }
  }
  return {Verdict::falseAlarm, drive.error};
}

}  // namespace

const char* verdictName(Verdict verdict) {
  constexpr std::array<const char*, verdicts> names{"found and named", "found",       "missed, explained", "missed",
                                                    "masked",          "false alarm", "no opportunity",    "broken"};
  return names.at(static_cast<size_t>(verdict));
}

int32_t statusNaming(FaultClass what) {
  switch (faultClassInfo(what).symptom) {
    case FaultSymptom::miscompare:
      return vdl::status::miscompare;
    case FaultSymptom::splice:
      return vdl::status::writeSplice;
    case FaultSymptom::atomicOrder:
      return vdl::status::atomicOrder;
  }
  return vdl::status::miscompare;
}

Judgement judge(FaultClass what, const RunResult& result, const JudgedTest& test) {
  std::vector<const Injection*> injections;
  for (const DriveResult& drive : result.drives) {
    if (drive.status == RunStatus::dataFailure) {
      return judgeFinding(drive, what, test.maxSpan);
    }
    if (drive.status != RunStatus::clean) {
      return {Verdict::broken, drive.error};
    }
    for (const Injection& injection : drive.injections) {
      injections.push_back(&injection);
    }
  }
  return judgeClean(injections, test);
}

}  // namespace corvane::host
