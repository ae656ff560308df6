#include "host/run/LbaAgent.h"

#include "host/run/ConfigurationError.h"
#include "host/run/LbaAgents.h"

namespace corvane::host {
namespace {

void checkLimits(const LbaLimits& limits) {
  if (limits.minBlocks == 0 || limits.minBlocks > limits.maxBlocks) {
    throw ConfigurationError("transfer lengths " + std::to_string(limits.minBlocks) + ".." +
                             std::to_string(limits.maxBlocks) + " are no range; give 1 <= MIN <= MAX");
  }
  if (limits.minAtomicBound == 0 || limits.minAtomicBound > limits.maxAtomicBound) {
    throw ConfigurationError("atomic bounds " + std::to_string(limits.minAtomicBound) + ".." +
                             std::to_string(limits.maxAtomicBound) + " are no range; give 1 <= MIN <= MAX");
  }
  if (limits.endLba < limits.firstLba || limits.endLba - limits.firstLba < limits.span(limits.maxBlocks)) {
    throw ConfigurationError("the LBA range " + std::to_string(limits.firstLba) + ".." + std::to_string(limits.endLba) +
                             " has no room for a command of " + std::to_string(limits.maxBlocks) +
                             " blocks; widen it or shorten the transfers");
  }
}

}  // namespace

const std::vector<std::string>& lbaAgentNames() {
  static const std::vector<std::string> names{"mixed", "sequential", "cachestress"};
  return names;
}

std::string lbaAgentHelp(std::string_view name) {
  if (name == "mixed") {
    return "random LBA and random length";
  }
  if (name == "sequential") {
    return "one command after the other through the range, then from its start again; random length";
  }
  if (name == "cachestress") {
    return "a small region that moves now and then; repeats, shifts, parts and overlaps of the latest ranges";
  }
  return {};
}

std::unique_ptr<LbaAgent> makeLbaAgent(std::string_view name, const LbaLimits& limits, uint64_t seed) {
  checkLimits(limits);
  if (name == "mixed") {
    return std::make_unique<MixedAgent>(limits, seed);
  }
  if (name == "sequential") {
    return std::make_unique<SequentialAgent>(limits, seed);
  }
  if (name == "cachestress") {
    return std::make_unique<CacheStressAgent>(limits, seed);
  }
  throw ConfigurationError("LBA agent '" + std::string(name) +
                           "' is not known; choose one of mixed, sequential, cachestress");
}

LbaChoice MixedAgent::next() {
  const auto blocks = static_cast<uint32_t>(random_.between(limits_.minBlocks, limits_.maxBlocks));
  const uint64_t lba = random_.between(limits_.firstLba, limits_.endLba - limits_.span(blocks));
  const auto bound = static_cast<uint32_t>(random_.between(limits_.minAtomicBound, limits_.maxAtomicBound));
  return {.lba = lba, .blocks = blocks, .atomicBound = bound};
}

LbaChoice SequentialAgent::next() {
  auto blocks = static_cast<uint32_t>(random_.between(limits_.minBlocks, limits_.maxBlocks));
  const auto bound = static_cast<uint32_t>(random_.between(limits_.minAtomicBound, limits_.maxAtomicBound));
  const uint64_t room = (limits_.endLba - cursor_) / limits_.lbaStep;
  if (room < limits_.minBlocks) {
    wrap();
  } else if (blocks > room) {
    blocks = static_cast<uint32_t>(room);
  }
  const LbaChoice choice{.lba = cursor_, .blocks = blocks, .atomicBound = bound};
  cursor_ += limits_.span(blocks);
  return choice;
}

void SequentialAgent::wrap() {
  // With a skip mask one pass touches only every other LBA, so the next pass takes the ones in between.
  const bool roomToShift = limits_.endLba - limits_.firstLba > limits_.span(limits_.maxBlocks);
  shifted_ = limits_.lbaStep == 2 && roomToShift && !shifted_;
  cursor_ = limits_.firstLba + (shifted_ ? 1 : 0);
}

}  // namespace corvane::host
