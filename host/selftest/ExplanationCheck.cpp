#include "host/selftest/ExplanationCheck.h"

#include <algorithm>
#include <optional>
#include <vector>

#include "host/explain/Explainer.h"

namespace corvane::host {
namespace {

/// Whether the struck command is the one that should have decided the altered blocks' content.
bool strikesTheDecidingWrite(FaultClass what) {
  switch (what) {
    case FaultClass::bitFlipRest:
    case FaultClass::bitFlipWrite:
    case FaultClass::lostWrite:
    case FaultClass::tornWrite:
    case FaultClass::tornWrite4k:
    case FaultClass::trimIgnored:
    case FaultClass::writeSameShort:
    case FaultClass::wrongStatus:
    case FaultClass::zeroedBlock:
    case FaultClass::swappedBlock:
    case FaultClass::mixedCommands:
    case FaultClass::crossTalk:
    case FaultClass::protectionDamage:
      return true;
    default:
      return false;
  }
}

std::vector<FindingKind> kindsOf(FaultClass what) {
  using enum FaultClass;
  using Kind = FindingKind;
  switch (what) {
    case bitFlipRest:
    case bitFlipWrite:
    case bitFlipRead:
    case verifyAlwaysEqual:
      return {Kind::bitFlips, Kind::protectionBytes};
    case lostWrite:
    case orderInversion:
    case writeSameShort:
    case lyingFlush:
      return {Kind::oldData, Kind::zeros};
    case staleRead:
    case readOvertakes:
      return {Kind::oldData, Kind::zeros, Kind::verifyAlarm};
    case misdirectedWrite:
      return {Kind::oldData, Kind::otherLba, Kind::zeros};
    case misdirectedRead:
      return {Kind::oldData, Kind::otherLba, Kind::zeros, Kind::noise};
    case tornWrite:
    case tornWrite4k:
    case wrongStatus:
      return {Kind::oldData, Kind::torn, Kind::zeros};
    case writeSplice:
      return {Kind::writeSplice, Kind::unreadable};
    case atomicTear:
      return {Kind::atomicOrder, Kind::oldData};
    case trimIgnored:
    case zoneResetIgnored:
      return {Kind::oldData};
    case trimTooFar:
    case zeroedBlock:
      return {Kind::zeros};
    case verifyFalseAlarm:
      return {Kind::verifyAlarm};
    case crossTalk:
      return {Kind::otherDrive};
    case swappedBlock:
      return {Kind::otherLba};
    case protectionDamage:
      return {Kind::protectionBytes};
    case invalidateIgnored:
      return {Kind::oldDataExpectedGone};
    case mixedCommands:
      return {Kind::torn, Kind::otherLba};
  }
  return {};
}

const AlteredBlock* alteredAt(const Injection& injection, uint64_t lba) {
  const auto found =
      std::ranges::find_if(injection.altered, [lba](const AlteredBlock& block) { return block.lba == lba; });
  return found == injection.altered.end() ? nullptr : &*found;
}

std::string wrongFact(const Explanation& e, const Injection& injection) {
  const AlteredBlock* altered = alteredAt(injection, e.lba);
  if (altered == nullptr) {
    // A splice is of a range; which of its blocks is meant shows only while that cannot be read.
    const bool namesNoBlock = e.kind == FindingKind::atomicOrder || e.kind == FindingKind::verifyAlarm ||
                              e.kind == FindingKind::unknown ||
                              (e.kind == FindingKind::writeSplice && e.reread != Reread::failed);
    return namesNoBlock ? "" : "the block was not altered";
  }
  if (e.difference && !altered->is.empty()) {
    if (e.driveBlock != altered->is) {
      return "the drive's block is another one";
    }
    if (e.referenceBlock != altered->was) {
      return "the reference is another one";
    }
    const Difference real = differenceOf(*altered);
    if (real.first != e.difference->first || real.bytes != e.difference->bytes) {
      return "the difference is another one";
    }
  }
  if (strikesTheDecidingWrite(injection.what) && e.kind != FindingKind::unknown &&
      (!e.expectedWrite || e.expectedWrite->lba != injection.lba || e.expectedWrite->blocks != injection.blocks ||
       e.expectedWrite->kind != injection.kind)) {
    return "the deciding command is another one";
  }
  return {};
}

}  // namespace

bool canShowAs(FaultClass what, FindingKind kind) {
  const std::vector<FindingKind> kinds = kindsOf(what);
  return kind == FindingKind::unknown || std::ranges::find(kinds, kind) != kinds.end();
}

ExplanationVerdict checkExplanation(FaultClass what, const RunResult& result) {
  ExplanationVerdict verdict;
  for (size_t drive = 0; drive < result.drives.size(); ++drive) {
    const std::optional<Explanation> explanation = explainDrive(result, drive);
    if (!explanation || result.drives[drive].injections.empty()) {
      continue;
    }
    verdict.explained = true;
    verdict.kind = explanation->kind;
    verdict.suspected = std::ranges::find(explanation->suspects, what) != explanation->suspects.end();
    verdict.suspectedFirst = verdict.suspected && explanation->suspects.front() == what;
    verdict.wrong = wrongFact(*explanation, result.drives[drive].injections.front());
    if (verdict.wrong.empty() && !canShowAs(what, explanation->kind)) {
      verdict.wrong = std::string("explained as ") + findingKindName(explanation->kind);
    }
  }
  return verdict;
}

}  // namespace corvane::host
