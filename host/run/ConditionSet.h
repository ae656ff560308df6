#pragma once

#include <cstdint>
#include <string_view>
#include <utility>
#include <vector>

#include "host/run/TestDefinition.h"
#include "vdl/Condition.h"

namespace corvane::host {

/// Whether a condition holds in a state: configured, no bit of `noneMask` set, every bit of `allMask` set, and
/// `anyMask` empty or sharing a bit with the state.
bool holds(const vdl::Condition& condition, uint64_t state);

/// The conditions of one test: a private bit for each, so that the agent's applying of one says nothing of another.
class ConditionSet {
 public:
  static constexpr uint64_t readBit = 1U << 0;
  static constexpr uint64_t verifyBit = 1U << 1;
  static constexpr uint64_t writeBit = 1U << 2;
  static constexpr uint64_t writeAtomicBit = 1U << 3;
  static constexpr uint64_t writeSameBit = 1U << 4;
  static constexpr uint64_t trimBit = 1U << 5;
  static constexpr uint64_t e2eBit = 1U << 6;
  static constexpr uint64_t powerToggleBit = 1U << 7;
  static constexpr uint64_t syncCacheBit = 1U << 8;
  /// The bits whose steps issue a command.
  static constexpr uint64_t commandBits =
      readBit | verifyBit | writeBit | writeAtomicBit | writeSameBit | trimBit | syncCacheBit;
  static constexpr uint64_t allBits = commandBits | e2eBit | powerToggleBit;

  static uint64_t bitOf(CommandKind kind);
  /// The kind whose step a single command bit runs; throws std::logic_error for anything else.
  static CommandKind kindOf(uint64_t bit);

  explicit ConditionSet(const TestDefinition& test);

  /// The configured conditions by the name of the agent's option.
  const std::vector<std::pair<std::string_view, vdl::Condition>>& options() const { return options_; }

 private:
  std::vector<std::pair<std::string_view, vdl::Condition>> options_;
};

}  // namespace corvane::host
