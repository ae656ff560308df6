#pragma once

#include <cstdint>
#include <string>

namespace corvane::host {

/// What the kernel tells of a block device in its folder of sysfs. What it does not tell is empty, 0 or false.
struct BlockTraits {
  std::string vendor;
  std::string model;
  std::string serial;
  std::string backingFile;  ///< of a loop device
  std::string mappedName;   ///< of a device of the device mapper
  bool partition = false;   ///< everything else is then the whole device's, but `readOnly`
  bool readOnly = false;
  bool volatileCache = false;
  bool hostManagedZones = false;
  bool knowsAtomicWrites = false;     ///< the kernel has words for atomic writes, whether or not the device has any
  uint64_t mostWriteZerosBytes = 0;   ///< in one command of the device; 0: it has none that makes zeros
  uint64_t mostDiscardBytes = 0;      ///< in one command of the device; 0: it has none that discards
  uint64_t memoryAlignmentBytes = 0;  ///< of the data of a transfer; 0: unknown

  /// "backed by /tmp/x.img", or maker, model and serial number; empty when nothing is known.
  std::string identity() const;
};

/// @param folder the device's, "/sys/dev/block/8:0"
BlockTraits readBlockTraits(const std::string& folder);

}  // namespace corvane::host
