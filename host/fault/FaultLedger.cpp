#include "host/fault/FaultLedger.h"

#include <algorithm>

namespace corvane::host {
namespace {

std::string differenceText(const AlteredBlock& block) {
  if (block.is.empty()) {
    return "LBA " + std::to_string(block.lba) + " cannot be read";
  }
  uint64_t bytes = 0;
  for (size_t i = 0; i < block.was.size(); ++i) {
    bytes += block.was[i] != block.is[i] ? 1U : 0U;
  }
  const auto first = std::mismatch(block.was.begin(), block.was.end(), block.is.begin()).first - block.was.begin();
  return "LBA " + std::to_string(block.lba) + " differs in " + std::to_string(bytes) + " bytes from byte " +
         std::to_string(first);
}

}  // namespace

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
