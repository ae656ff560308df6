#pragma once

#include "Step.h"

namespace vdl::agent {

/// Whether every block of a read holds exactly what the newest event before the read left there: the rule, which needs
/// no copy of the blocks' histories. Only looks; the read still waits in the table afterwards.
///
/// Why this look is enough: a block may be explained by any event down to the first one that is not transparent. When
/// the event at which the read waits is neither transparent nor an invalidation marker, it is the only candidate,
/// and the block is judged by it whatever the block says of itself. No block then shows an atomic write that may have
/// failed, so there is no order among blocks to check either.
///
/// @return true: the read is right, and every wait of it can be ended in the table. False: not decided; the judgement
///         by the histories must be made from the start
bool rightInPlace(const Step& step, const ComparableReadData& read);

}  // namespace vdl::agent
