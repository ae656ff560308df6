#pragma once

#include <cstdint>

#include "Corvane.h"

namespace vdl {

/// Records of commands in flight and of finished writes that still have to be read back.
///
/// They live by value in the queues of `DriveData`, are found by a walk from the front, and are erased by the
/// handler that consumes them. `lba` is the first block, `xferLength` counts blocks; with skip commands the blocks
/// are every other LBA.
struct Corvane::CmdStatus {
  /// A read ahead of an atomic write that captures the old content as hashes.
  struct PreRead {
    uint64_t cmdId;
    uint64_t readCmdId;  ///< the atomic write that claimed it while in flight; 0: unclaimed
    uint64_t lba;
    uint32_t xferLength;
    uint32_t tagId;
    uint8_t writeKind;
    uint32_t writeParam;  ///< atomic bound of the write that it prepares, blocks
    uint8_t writeFlag;
  };

  /// A read whose data will be compared, or that checks for a splice.
  struct ReadSent {
    uint64_t cmdId;
    uint64_t lba;
    uint32_t xferLength;
    uint32_t tagId;
    uint8_t spliceCheck;    ///< a write over this range was aborted or failed; only readability counts
    uint8_t spliceRetries;  ///< how often this splice check was already issued again, 0 or 1
  };

  /// A verify: the drive compares.
  struct VerifySent {
    uint64_t cmdId;
    uint64_t lba;
    uint32_t xferLength;
    uint32_t tagId;
    uint8_t expectMiscompare;  ///< the data sent differ from the drive's on purpose
  };

  /// A write, write-same, atomic write or trim.
  struct WriteSent {
    uint64_t cmdId;
    uint64_t readCmdId;  ///< the read issued against this unfinished write; 0: none
    uint64_t lba;
    uint32_t xferLength;
    uint32_t tagId;
    uint8_t readBack;         ///< cleared by a zone reset over the range
    uint8_t readBackOnError;  ///< an atomic write: read back even when it failed
  };

  /// A finished write that awaits its read-back.
  struct WriteFinished {
    uint64_t cmdId;  ///< 0 for a read that was lost or aborted and is issued again
    uint64_t lba;
    uint32_t xferLength;
    uint8_t spliceCheck;
    uint8_t spliceRetries;
  };
};

}  // namespace vdl
