#pragma once

#include <cstdint>

#include "Step.h"

namespace vdl::agent {

/// Compares every kept read that waits for no write any more, up to the first failure.
///
/// @return 0, or the failure's status, already logged
int32_t doCompares(Step& step);

}  // namespace vdl::agent
