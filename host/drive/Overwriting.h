#pragma once

#include <cstdint>

namespace corvane::host {

/// What a test may destroy on a real drive. Files that were named as drives, and drives in memory, are always
/// overwritten.
enum class Overwriting : uint8_t {
  ofEmptyDrives,  ///< a drive that holds a file system, a partition table or the like, or that is in use, is refused
  ofAnything,     ///< the user has said that it may go; only the disk of the running system stays refused
  nothing         ///< the drive is only looked at: whatever it holds and whoever uses it, it is opened
};

/// Whether a device is to be opened so that nobody else can mount or claim it (O_EXCL).
constexpr bool opensExclusively(Overwriting overwriting) { return overwriting == Overwriting::ofEmptyDrives; }

/// Whether a device is to be opened for writing; else it is opened for reading, and nothing but reads is sent to it.
constexpr bool opensForWriting(Overwriting overwriting) { return overwriting != Overwriting::nothing; }

}  // namespace corvane::host
