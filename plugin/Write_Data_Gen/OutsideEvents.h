#pragma once

#include <cstdint>

#include "Step.h"

namespace vdl::agent {

/// Takes note of a power cycle by the host ("EPO").
void absorbPowerOn(Step& step);

/// Drains the queue of zone resets, then the queue of invalidated ranges.
/// Throws std::system_error when a queue's mutex cannot be locked.
void absorbRangeEvents(Step& step);

/// A cache flush finished; a good one lets the power toggle of this step go ahead.
void recvSync(Step& step, const FinishedCommand& finished);

}  // namespace vdl::agent
