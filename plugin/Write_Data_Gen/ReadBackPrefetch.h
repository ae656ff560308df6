#pragma once

#include <cstdint>

#include "Step.h"

namespace vdl::agent {

/// Asks the processor for what the next read-backs will touch in the table, so that it has arrived when they are
/// issued. With many writes outstanding nothing of it is in a cache any more. Results do not depend on it.
///
/// Called once a step: what hangs on what else is asked for one step after the other, for the writes that are first,
/// second and third in line.
void prefetchReadBacks(const DriveData& data);

/// Asks for the sectors of the pool that a read will be compared with, while the drive works on it.
///
/// @param first what the first block should hold
void prefetchContent(Step& step, const PeekResult& first, uint32_t blocks);

}  // namespace vdl::agent
