#pragma once

#include <cstdint>

namespace vdl {

/// Framework-wide counter that keeps time-based seeds of drives started in the same millisecond apart.
///
/// Every derivation of a seed takes the current value and adds one in the same step. Drives start on their own
/// threads, so access it only through `std::atomic_ref<uint32_t>`. It wraps around.
extern uint32_t seed_entropy;

}  // namespace vdl
