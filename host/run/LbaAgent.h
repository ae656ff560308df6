#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace corvane::host {

/// Where the commands of a test may go.
struct LbaLimits {
  uint64_t firstLba = 0;
  uint64_t endLba = 0;     ///< excluded; room for at least one longest command
  uint32_t minBlocks = 1;  ///< at least 1
  uint32_t maxBlocks = 1;
  uint32_t lbaStep = 1;  ///< 2 with an alternating skip mask: a command then occupies 2 LBAs for each block
  uint32_t minAtomicBound = 1;
  uint32_t maxAtomicBound = 1;

  /// LBAs that a command of so many blocks occupies.
  uint64_t span(uint32_t blocks) const { return static_cast<uint64_t>(blocks) * lbaStep; }
};

/// One generated range.
struct LbaChoice {
  uint64_t lba = 0;
  uint32_t blocks = 0;
  uint32_t atomicBound = 1;
};

/// Chooses where the next command goes and how long it is.
///
/// Every choice lies within the limits: `firstLba <= lba`, `lba + span(blocks) <= endLba`, and lengths and bounds
/// from their minimum to their maximum, both included. The choices follow from the seed alone, on every machine.
class LbaAgent {
 public:
  virtual ~LbaAgent() = default;
  virtual LbaChoice next() = 0;
};

/// "mixed", "sequential", "cachestress".
const std::vector<std::string>& lbaAgentNames();

/// What an LBA agent does, one line.
std::string lbaAgentHelp(std::string_view name);

/// Throws ConfigurationError for a name that is not known or limits that leave no room.
std::unique_ptr<LbaAgent> makeLbaAgent(std::string_view name, const LbaLimits& limits, uint64_t seed);

}  // namespace corvane::host
