#pragma once

#include <cstdint>
#include <functional>
#include <list>
#include <vector>

#include "AtomicHash.h"
#include "CmdStatus.h"
#include "CommandTrace.h"
#include "ComparableReadData.h"
#include "ConfigData.h"
#include "Corvane.h"
#include "RandomNumberGenerator.h"
#include "RecordQueue.h"
#include "SectorPrefetch.h"
#include "vdl/DriveThread.h"

namespace vdl {

/// The agent's state for one drive. Only that drive's thread touches it.
///
/// The handles are the drive thread's; everything else that is a pointer is owned and released by `freeDriveData`.
/// Handles of variables that only some tests provide may be null.
struct Corvane::DriveData {
  // Shared variables, in the order in which they are mapped.
  uint64_t* lba = nullptr;
  uint32_t* xferLength = nullptr;
  uint32_t* atomicBound = nullptr;
  uint32_t* testMaxXferLength = nullptr;
  uint64_t* maxLBA = nullptr;
  uint64_t* minLBA = nullptr;
  uint32_t* epo = nullptr;
  uint32_t* lastTagID = nullptr;
  uint32_t* readDataIsValid = nullptr;
  uint32_t* deviceInterface = nullptr;
  uint32_t* lastStatusByte = nullptr;
  TaggedBuffer* readDataPtr = nullptr;
  TaggedBuffer* cdb = nullptr;
  TaggedBuffer* recvCDB = nullptr;
  Buffer* writeData = nullptr;
  Buffer* lastErrSenseData = nullptr;
  TaggedBuffer* parameterList = nullptr;
  uint32_t* bucketIndex = nullptr;
  uint32_t* skipGen = nullptr;
  bool* deviceReset = nullptr;
  uint64_t* writeLBA = nullptr;
  uint32_t* writeXferLength = nullptr;
  uint32_t* writeCmdUsed = nullptr;
  LBARangeQueue* zoneResetQueue = nullptr;  ///< null when no agent of the test resets zones
  uint32_t* hostManaged = nullptr;
  LBARangeQueue* invalidateQueue = nullptr;  ///< null when no agent of the test invalidates ranges

  uint64_t nextCmdId = 1;            ///< shared by every command kind; 0 never names a command
  uint8_t* buckets = nullptr;        ///< the pool: bucketCount sectors
  uint8_t* embedBuffer = nullptr;    ///< scratch for one maximum transfer
  uint8_t* zeroBlock = nullptr;      ///< one sector of zeros
  bool skipGenOnList = true;         ///< taking a command's LBA from a list also sets "SkipGen"
  std::vector<uint8_t*> tagBuffers;  ///< write data of each tag, from `newPageAligned`

  RecordQueue<CmdStatus::PreRead> preReadRequeue;
  RecordQueue<CmdStatus::PreRead> preReadFinished;
  RecordQueue<CmdStatus::PreRead> preReadSent;
  RecordQueue<CmdStatus::ReadSent> readSent;
  RecordQueue<CmdStatus::VerifySent> verifySent;
  RecordQueue<CmdStatus::WriteSent> writeSent;
  RecordQueue<CmdStatus::WriteFinished> writeFinished;
  std::list<ComparableReadData> comparableReads;
  std::list<ComparableReadData> spareReads;  ///< compared ones, whose memory the next reads use

  AtomicHash atomicHash;
  CommandTrace* trace = nullptr;
  RandomNumberGenerator<unsigned long> rng;

  bool readPhase = false;
  uint8_t readShare = 127;  ///< of 256 draws between a write and a read; the last one used
  bool syncIssued = false;
  bool syncDone = false;
  bool miscompareSeen = false;
  bool failureSeen = false;
  uint64_t miscompareLBA = 0;
  Buffer* referenceCompareData = nullptr;
  Buffer* driveCompareData = nullptr;
  double powerOnTime = 0;  ///< milliseconds since the epoch
  uint32_t deviceParameter = 0xFFFFFFFF;
  std::function<int(DriveThread*, DriveData*, const ConfigData*)> firstExecute;

  /// Bytes behind each entry of `tagBuffers`: a transfer above "TestMaxXferLength" makes its tag's buffer grow.
  std::vector<uint64_t> tagBufferBytes;
  agent::SectorPrefetch sectorsAhead;
  /// False once a reset or a failed step left references that nothing gives back: there is nothing to audit then.
  bool referencesBalanced = true;
};

namespace agent {

/// Allocates one write buffer for every queue tag; runs in the first `execute` of a test, when the test's transfer
/// length is settled.
///
/// @return 0, or -1002 when a buffer could not be had; the others stay allocated
int firstExecuteInit(DriveThread* drive, Corvane::DriveData* data, const Corvane::ConfigData* config);

}  // namespace agent
}  // namespace vdl
