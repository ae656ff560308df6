#pragma once

#include <cstdint>

/// Status codes shared by the framework and its agents.
///
/// 0 is success, every failure is negative. The enumerators are plain integers on purpose: a status travels
/// through `int32_t` results, and a framework may return codes that this list does not name.
namespace vdl::status {

enum : int32_t {
  ok = 0,
  outOfMemory = -1002,          ///< memory or a pool is exhausted
  notFound = -1003,             ///< no record, or no matching event
  notInContext = -1004,         ///< the LBA is not part of the context
  badQueueRange = -1009,        ///< minimum queue size above the maximum
  bufferTooLarge = -1022,       ///< a request exceeds its buffer, or a read buffer is missing
  missingSetting = -1027,       ///< a required option or drive property is missing
  noWriteToReadBack = -1045,    ///< no finished or outstanding write is left to read
  miscompare = -1046,           ///< data differ from what the drive must hold
  incompatibleOptions = -1050,  ///< options or command selections that exclude each other
  reportNotOpened = -1052,      ///< the command-sequence report could not be opened
  showstopFailed = -1053,       ///< the drive could not be stopped at the failure
  pointerBeyondBuffer = -1057,  ///< read data are shorter than the transfer
  writeSplice = -1062,          ///< an aborted or failed write left unreadable blocks
  atomicOrder = -1063,          ///< part of an atomic write is new, part is old
  noRecord = -1200,             ///< no in-flight record, or a reference count that had to be positive
};

}  // namespace vdl::status
