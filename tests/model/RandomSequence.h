#pragma once

#include <cstdint>
#include <string>

#include "tests/model/Comparison.h"
#include "tests/model/Sequence.h"

namespace refmodel {

/// A sequence that follows from the number alone: longer and wider than what can be tried in full, over borders between
/// pages of 64 LBAs, and with most of its data right, so that it goes on.
Sequence randomSequence(uint64_t number);

/// What random sequences came to.
struct RandomCounts {
  uint64_t sequences = 0;
  uint64_t operations = 0;
  uint64_t findings = 0;
  uint64_t refusals = 0;
  uint64_t judgements = 0;
};

/// Plays random sequences until one makes a difference, which is then made as small as it gets.
///
/// @param seed     of the first one; the same seed gives the same sequences
/// @param cases    sequences to play; 2^31 - 1 at most
/// @param counts   receives what they came to, those tried to make the last one smaller included
/// @return the smallest sequence found and what is different in it, for people; empty when there is no difference
std::string playRandomSequences(Comparison& comparison, uint64_t seed, uint32_t cases, RandomCounts& counts);

}  // namespace refmodel
