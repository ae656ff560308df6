#include "host/fault/FaultLedger.h"

#include <algorithm>

namespace corvane::host {
namespace {

std::string differenceText(const AlteredBlock& block) {
  if (block.is.empty()) {
    return "LBA " + std::to_string(block.lba) + " cannot be read";
  }
  const Difference difference = differenceOf(block);
  return "LBA " + std::to_string(block.lba) + " differs in " + std::to_string(difference.bytes) + " bytes from byte " +
         std::to_string(difference.first);
}

}  // namespace

Difference differenceOf(const AlteredBlock& block) {
  Difference difference;
  difference.first = static_cast<size_t>(std::ranges::mismatch(block.was, block.is).in1 - block.was.begin());
  for (size_t i = difference.first; i < block.was.size(); ++i) {
    difference.bytes += block.was[i] != block.is[i] ? 1U : 0U;
  }
  return difference;
}

std::string injectionText(const Injection& injection) {
  std::string text = std::string(faultClassInfo(injection.what).name) + " at command " +
                     std::to_string(injection.command) + ", a " + commandKindName(injection.kind);
  if (injection.kind != CommandKind::syncCache) {
    text += " of " + std::to_string(injection.blocks) + " blocks at LBA " + std::to_string(injection.lba);
  }
  text += ": " + std::to_string(injection.altered.size()) + " blocks altered";
  if (!injection.altered.empty()) {
    text += ", " + differenceText(injection.altered.front());
  }
  return injection.note.empty() ? text : text + "; " + injection.note;
}

}  // namespace corvane::host
