#pragma once

#include <cstdint>

#include "Step.h"

namespace corvane::bench {

constexpr uint64_t readsInABatch = 64;

/// Puts a batch of good reads into the state in which they wait for their compare.
///
/// @param step of an agent that has no write in flight and whose range holds `readsInABatch * blocks` blocks
/// @param id the latest command id that was used; moved on
void prepareReads(vdl::agent::Step& step, uint32_t blocks, uint64_t& id);

}  // namespace corvane::bench
