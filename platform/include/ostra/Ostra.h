#pragma once

#include <cstdint>

/// The device-interface library: vendor access to a drive beside the ordinary commands.
///
/// A device handle is a small integer; -1 means that no device is attached. Every operation returns 0 or a
/// device-interface error number, which is never 0. Calls are synchronous and belong to the device's drive thread.
namespace Ostra {

/// Index of the device of the calling drive thread; 0 when it has none.
uint32_t getCurrentDeviceIndex();

/// Sends a request of the library's own.
///
/// | Request | Arguments                             | Meaning                             |
/// |---------|---------------------------------------|-------------------------------------|
/// | 178     | `const uint32_t*`                     | sets the one-word showstop setting  |
/// | 179     | `uint32_t*`                           | reads the showstop setting          |
/// | 218     | `const uint32_t*`, `const uint64_t*`  | takes a status word and an LBA      |
/// | 4241    | `uint32_t*`                           | reads the device parameter          |
///
/// @param count number of pointers that follow
/// @return 0; or an error number, also when the drive does not know the request
int ioctl(int device, uint32_t request, uint32_t count, ...);

/// Sends one vendor command.
///
/// The request block starts with its own length in bytes (32 bits, little-endian). A fixed word of 16 bits and the
/// length of the command descriptor block (8 bits) follow; the command descriptor block starts at byte 24.
int send(int device, uint8_t* commandBlock);

}  // namespace Ostra
