#include "host/fault/FaultNeeds.h"

#include <algorithm>

namespace corvane::host {
namespace {

constexpr uint32_t pageBytes = 4096;

/// What a test has to do for the fault to come up, beside issuing the right command.
std::string missingBesideKind(const FaultSpec& spec, const FaultSurroundings& test, const DriveGeometry& geometry) {
  switch (spec.what) {
    case FaultClass::crossTalk:
      if (test.drives < 2) {
        return "the test has one drive; name two";
      }
      return spec.drive == 1 ? "the foreign data come from the first drive; name another one" : "";
    case FaultClass::protectionDamage:
      return geometry.protectionBytes == 0 ? "the drive has no protection bytes; use one that has, as with pi=8" : "";
    case FaultClass::lyingFlush:
      return test.powerCuts ? "" : "no power cut would show it; cut the power after flushes";
    default:
      return "";
  }
}

/// The longest command that the test can issue of a kind.
DriveCommand longest(CommandKind kind, const FaultSurroundings& test, const DriveGeometry& geometry) {
  DriveCommand command;
  command.kind = kind;
  command.lba = std::max(1U, pageBytes / geometry.blockSize) - 1;  // two blocks cross a boundary from here
  command.blocks = kind == CommandKind::syncCache ? 0 : test.maxBlocks;
  command.atomicBound = test.maxAtomicBound;
  return command;
}

std::string kindsFor(FaultClass what, const DriveGeometry& geometry) {
  FaultSurroundings generous{.kinds = {}, .maxBlocks = pageBytes, .maxAtomicBound = 2};
  std::string text;
  for (const CommandKind kind :
       {CommandKind::write, CommandKind::writeAtomic, CommandKind::writeSame, CommandKind::trim, CommandKind::read,
        CommandKind::verify, CommandKind::syncCache, CommandKind::zoneReset, CommandKind::invalidate}) {
    if (canStrike(what, longest(kind, generous, geometry), geometry)) {
      text += (text.empty() ? "" : " or ") + std::string(commandKindName(kind));
    }
  }
  return text;
}

}  // namespace

std::string faultNeeds(const FaultSpec& spec, const FaultSurroundings& test, const DriveGeometry& geometry) {
  const std::string beginning = "fault '" + faultSpecText(spec) + "' can never strike: ";
  if (spec.drive > test.drives) {
    return beginning + "the test has " + std::to_string(test.drives) + " drives; name one of them";
  }
  if (const std::string missing = missingBesideKind(spec, test, geometry); !missing.empty()) {
    return beginning + missing;
  }
  const bool issued = std::ranges::any_of(
      test.kinds, [&](CommandKind kind) { return canStrike(spec.what, longest(kind, test, geometry), geometry); });
  if (issued) {
    return {};
  }
  const std::string kinds = kindsFor(spec.what, geometry);
  const bool longEnough = std::ranges::any_of(test.kinds, [&](CommandKind kind) {
    FaultSurroundings longer = test;
    longer.maxBlocks = pageBytes;
    longer.maxAtomicBound = std::max(2U, test.maxAtomicBound);
    return canStrike(spec.what, longest(kind, longer, geometry), geometry);
  });
  return beginning + (longEnough ? "the transfers are too short for it; allow longer ones"
                                 : "the test issues no " + kinds + "; select that kind of command");
}

}  // namespace corvane::host
