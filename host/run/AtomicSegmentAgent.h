#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "host/drive/Drive.h"
#include "host/run/LbaAgent.h"

namespace corvane::host {

/// The atomic bounds that a test can use on a drive whose atomic segments are limited, ascending: powers of two within
/// the drive's limits and the test's bounds, of which some multiple is a length of the test and fits into its range at
/// a multiple of the bound. Empty: such a test is not possible.
std::vector<uint32_t> legalAtomicBounds(const LbaLimits& limits, const AtomicSegments& segments);

/// Moves what another LBA agent chooses to where a drive takes atomic writes, when the drive limits its segments.
///
/// The bound becomes the next legal one below, or the least; LBA and length become multiples of it. The host does not
/// know yet which kind of command a choice will serve, so every command of such a test is aligned.
class AtomicSegmentAgent final : public LbaAgent {
 public:
  /// @param inner    stays within `limits`
  /// @param segments has limits
  ///
  /// Throws ConfigurationError when there is no legal bound.
  AtomicSegmentAgent(std::unique_ptr<LbaAgent> inner, const LbaLimits& limits, const AtomicSegments& segments);

  LbaChoice next() override;

 private:
  uint32_t boundBelow(uint32_t wanted) const;

  const std::unique_ptr<LbaAgent> inner_;
  const LbaLimits limits_;
  const std::vector<uint32_t> bounds_;
};

}  // namespace corvane::host
