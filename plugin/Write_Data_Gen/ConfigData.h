#pragma once

#include <cstdint>
#include <mutex>
#include <string>

#include "Corvane.h"
#include "vdl/Buffer.h"
#include "vdl/Condition.h"

namespace vdl {

/// The option values of a test, one record for all drives.
///
/// The framework fills it between `initConfigData` and the first `startTest`; during the test it is only read, but
/// for `embedData`, which `startTest` may force to false under `dataMutex`.
struct Corvane::ConfigData {
  uint32_t maxQueueSize = 4096;    ///< writes awaiting read-back at which a read must follow
  uint32_t minQueueSize = 2048;    ///< writes awaiting read-back below which a write must follow
  uint32_t bucketCount = 65536;    ///< sectors in the pool
  uint32_t powerToggleFreq = 300;  ///< seconds
  uint32_t traceDepth = 0;         ///< commands, before the ring's sizing rule; 0: from maxQueueSize
  uint32_t randomSeed = 0;         ///< 0: time-based
  bool embedLBA = true;            ///< deprecated; false forces embedData to false
  bool embedData = true;
  bool randomSelection = true;
  bool slideReads = false;
  bool writeSpliceDetection = false;
  bool userDefinedData = false;
  bool useSkipCommands = false;
  bool showstopOnMiscompare = false;
  bool coldStorage = false;  ///< deprecated; nothing reads it
  Buffer dataBuffer;         ///< user data; guarded by dataMutex
  mutable std::mutex dataMutex;
  Condition readCondition;
  Condition verifyCondition;
  Condition writeCondition;
  Condition writeAtomicCondition;
  Condition writeSameCondition;
  Condition trimCondition;
  Condition e2eCondition;
  Condition powerToggleCondition;
  Condition syncCacheCondition;
  std::string miscompareOutputPath = "./datacompare";  ///< start of report and dump file names
  bool alwaysDumpSequence = false;
};

}  // namespace vdl
