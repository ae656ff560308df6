#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "host/drive/nvme/NvmePassthrough.h"

namespace corvane::host {

/// What a namespace and its controller say of themselves (Identify), in the units and with the offsets by one of NVMe
/// already taken out.
struct NvmeIdentity {
  struct Controller {
    std::string model;
    std::string serial;
    std::string firmware;
    uint64_t mostTransferBytes = 0;  ///< MDTS; 0: no limit
    uint64_t mostZeroBytes = 0;      ///< WZSL, of one Write Zeroes; 0: no limit
    bool compares = false;
    bool deallocates = false;
    bool writesZeroes = false;
    bool volatileCache = false;  ///< it has one, and it is on
    uint32_t atomicBlocksPowerFail = 1;
  };
  struct Namespace {
    uint64_t blocks = 0;
    uint64_t blocksInUse = 0;
    uint32_t blockSize = 0;  ///< bytes
    uint32_t metadataBytes = 0;
    bool metadataExtended = false;  ///< behind each block's data, and not in memory of its own
    uint8_t protectionType = 0;     ///< 1 to 3; 0: no protection information
    bool deallocatedReadsZero = false;
    bool zeroesMayDeallocate = false;
    uint32_t preferredWriteBlocks = 1;
    uint32_t atomicBlocksPowerFail = 0;    ///< 0: as the controller says
    uint32_t atomicBoundaryPowerFail = 0;  ///< blocks from one boundary to the next; 0: none
    uint32_t atomicFirstBoundary = 0;      ///< LBA of the first one
  };
  struct Zones {
    uint64_t zoneBlocks = 0;     ///< 0: a namespace without zones
    bool readsAcross = false;    ///< one read may go over a zone's end
    uint64_t mostActive = 0;     ///< 0: no limit
    uint64_t mostOpen = 0;       ///< 0: no limit
    uint64_t leastCapacity = 0;  ///< blocks of the smallest zone that can be written; the last one may be shorter
  };

  uint32_t nsid = 0;
  uint8_t commandSet = 0;  ///< of `nvme_command_set`
  Controller controller;
  Namespace space;
  Zones zones;
};

/// Asks for everything. Throws DriveError, naming `device`, when the namespace is not there or does not answer.
NvmeIdentity identifyNvme(NvmePassthrough& passthrough, const std::string& device);

}  // namespace corvane::host
