#pragma once

#include <string>

#include "host/drive/Drive.h"
#include "host/drive/DriveAddress.h"

namespace corvane::host {

/// Reads `block=`, `pi=` and `exponent=` of an address; the number of blocks stays 0.
DriveGeometry takeGeometry(DriveAddress& address);

/// The number of sectors in so many bytes. Throws DriveAddressError, naming the address, when they do not divide or
/// there is not one.
uint64_t blocksOf(const DriveAddress& address, uint64_t bytes, const DriveGeometry& geometry);

/// What `takeGeometry` understands, a line a key, for `--help`.
std::string geometryKeysHelp();

/// "64 MiB, 512-byte blocks", and protection bytes when there are any.
std::string describeGeometry(const DriveGeometry& geometry);

}  // namespace corvane::host
