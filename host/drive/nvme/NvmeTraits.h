#pragma once

#include <cstdint>
#include <string>

#include "host/drive/Drive.h"
#include "host/drive/TransferPlan.h"
#include "host/drive/nvme/NvmeIdentify.h"

namespace corvane::host {

/// How a user wants an NVMe namespace to be used.
struct NvmeOptions {
  enum class Trim : uint8_t { wherePossible, writeZeroes, deallocate, off };
  enum class Verify : uint8_t { wherePossible, compare, read };

  bool protection = true;  ///< protection information is transferred; else the controller adds and strips it
  Trim trim = Trim::wherePossible;
  Verify verify = Verify::wherePossible;
  bool vendorAdmin = false;  ///< vendor requests go as admin commands
};

/// What a namespace is to Corvane, and with which commands Corvane's are carried out.
struct NvmeTraits {
  DriveGeometry geometry;
  DriveCapabilities capabilities;
  TransferLimits transfers;       ///< of commands that move blocks
  uint64_t mostZeroBlocks = 0;    ///< of one Write Zeroes
  bool separateMetadata = false;  ///< protection bytes go through memory of their own
  uint8_t protection = 0;         ///< PRINFO of reads and writes
  bool referenceIsLba = false;    ///< the commands name the reference tag of their first block
  NvmeOptions::Trim trim = NvmeOptions::Trim::off;
  bool zeroesDeallocate = false;  ///< Write Zeroes may free the blocks
  bool readsStayInZones = false;  ///< a read ends at its zone's end
  std::string compromises;        ///< for people: how verify, trim and atomic writes are carried out
};

/// Decides. Throws DriveError, naming `device` and the remedy, for a format or a wish that cannot be had.
///
/// @param kernelBytes the most bytes of one command that the kernel carries
/// @param reset       whether the controller can be reset
NvmeTraits nvmeTraits(const NvmeIdentity& identity, const NvmeOptions& options, uint64_t kernelBytes, bool reset,
                      const std::string& device);

}  // namespace corvane::host
