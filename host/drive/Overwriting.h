#pragma once

#include <cstdint>

namespace corvane::host {

/// What a test may destroy on a real drive. Files that were named as drives, and drives in memory, are always
/// overwritten.
enum class Overwriting : uint8_t {
  ofEmptyDrives,  ///< a drive that holds a file system, a partition table or the like, or that is in use, is refused
  ofAnything      ///< the user has said that it may go
};

}  // namespace corvane::host
