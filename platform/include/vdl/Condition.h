#pragma once

#include <cstdint>

namespace vdl {

/// A named condition of a test, over the 64 condition bits of a drive thread (`DriveThread::conditions`).
///
/// It is *configured* when one of its masks is not zero. It *holds* when it is configured, no bit of `noneMask` is
/// set, every bit of `allMask` is set, and `anyMask` is empty or shares a bit with the state. *Applying* it sets
/// the bits of `anyMask` and `allMask`, and clears those of `noneMask`, or every other bit when `replace` is set.
struct Condition {
  uint64_t anyMask = 0;
  uint64_t allMask = 0;
  uint64_t noneMask = 0;
  bool replace = false;
};

}  // namespace vdl
