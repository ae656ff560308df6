#include <sys/mman.h>

#include <algorithm>
#include <atomic>
#include <limits>
#include <mutex>
#include <new>

#include "CallbackGuard.h"
#include "Conditions.h"
#include "SectorBuckets.h"
#include "Step.h"
#include "ostra/Ostra.h"

namespace vdl {

namespace agent {

namespace {

constexpr uint32_t deviceParameterRequest = 4241;

/// Shows the test's operator a failed check, and remembers its status: the last one counts.
class Findings {
 public:
  explicit Findings(EventLog& log) : log_(log) {}

  void fail(int32_t status, const char* text) {
    log_.logf(2, "%s", text);
    status_ = status;
  }
  void keep(int32_t status) { status_ = status; }

  bool clean() const { return status_ == status::ok; }
  int32_t status() const { return status_; }

 private:
  EventLog& log_;
  int32_t status_ = status::ok;
};

uint64_t userBytes(const ConfigData& config) {
  std::lock_guard lock(config.dataMutex);
  return config.dataBuffer.size;
}

void checkSettings(const Step& step, Findings& findings) {
  const ConfigData& config = step.config;
  if (config.minQueueSize > config.maxQueueSize) {
    step.log().logf(2, "Min Queue Size > Max Queue Size: %u > %u", config.minQueueSize, config.maxQueueSize);
    findings.keep(status::badQueueRange);
  }
  if (!configured(config.readCondition) && !configured(config.verifyCondition)) {
    findings.fail(status::missingSetting, "Read or verify Condition Must Be Set");
  }
  if (!configured(config.writeCondition) && !configured(config.writeAtomicCondition) &&
      !configured(config.writeSameCondition) && !configured(config.trimCondition)) {
    findings.fail(status::missingSetting, "A Write Condition Must Be Set");
  }
  if (config.userDefinedData && userBytes(config) == 0) {
    findings.fail(status::missingSetting, "UserData: No Data Was Specified");
  }
}

/// Releases what an earlier start on the same record left.
void releaseOldObjects(DriveData& data) {
  // "WriteData" may still show the old pool.
  if (data.writeData != nullptr && !data.writeData->owned) {
    data.writeData->release();
  }
  delete data.trace;
  delete[] data.buckets;
  delete[] data.zeroBlock;
  delete[] data.embedBuffer;
  delete data.referenceCompareData;
  delete data.driveCompareData;
  data.trace = nullptr;
  data.buckets = nullptr;
  data.zeroBlock = nullptr;
  data.embedBuffer = nullptr;
  data.referenceCompareData = nullptr;
  data.driveCompareData = nullptr;
}

void createTrace(Step& step, Findings& findings) {
  const uint32_t size = CommandTrace::ringSize(step.config.traceDepth, step.config.maxQueueSize);
  findings.keep(guardMemory(step.thread, "startTest", [&]() -> int {
    step.data.trace = new CommandTrace(size);
    return status::ok;
  }));
}

/// Every command takes its data from another place of the pool, which small pages make a walk through page tables.
/// A kernel without large pages gives small ones.
void preferLargePages(uint8_t* memory, uint64_t bytes) {
  constexpr uintptr_t page = uintptr_t{2} << 20;
  const auto address = reinterpret_cast<uintptr_t>(memory);
  const uintptr_t first = (address + page - 1) / page * page;
  const uintptr_t end = (address + bytes) / page * page;
  if (memory != nullptr && first < end) {
    madvise(memory + (first - address), end - first, MADV_HUGEPAGE);
  }
}

/// Pool memory, or the finding that it cannot be had. The product is the option's in 32 bits; one that does not fit
/// but leaves a rest would give fewer buckets than their numbers promise, so it counts as memory that is not there.
void allocatePool(Step& step, Findings& findings) {
  const uint64_t bytes = uint64_t{sectorBytes(step.thread)} * step.config.bucketCount;
  if (static_cast<uint32_t>(bytes) == 0) {
    findings.fail(status::missingSetting, "Drive Blocksize reported as zero");
    return;
  }
  if (bytes <= std::numeric_limits<uint32_t>::max()) {
    step.data.buckets = new (std::nothrow) uint8_t[bytes];
    preferLargePages(step.data.buckets, bytes);
  }
  if (step.data.buckets == nullptr) {
    findings.fail(status::outOfMemory, "Could not allocate sector buckets");
  }
}

void fillPool(Step& step) {
  const uint32_t sector = sectorBytes(step.thread);
  const uint64_t bytes = uint64_t{sector} * step.config.bucketCount;
  if (!step.config.userDefinedData) {
    fillRandomPool(step.data.buckets, bytes, sector, step.data.rng);
    return;
  }
  const uint64_t transferBytes = uint64_t{sector} * *step.data.testMaxXferLength;
  std::lock_guard lock(step.config.dataMutex);
  fillUserPool(step.data.buckets, bytes, transferBytes == 0 ? sector : transferBytes, step.config.dataBuffer.data,
               step.config.dataBuffer.size);
}

bool allocateCompareBuffer(Buffer*& buffer, uint32_t blockSize) {
  buffer = new (std::nothrow) Buffer;
  return buffer != nullptr && buffer->reserve(blockSize) == status::ok;
}

void createPool(Step& step, Findings& findings) {
  allocatePool(step, findings);
  step.data.rng.init(deriveSeed(step.config.randomSeed), 0, std::numeric_limits<unsigned long>::max());
  if (!findings.clean()) {
    return;
  }
  fillPool(step);
  step.data.zeroBlock = new (std::nothrow) uint8_t[sectorBytes(step.thread)]();
  if (step.data.zeroBlock == nullptr) {
    findings.fail(status::outOfMemory, "Corvane: Failed memory allocation for trim buffer.");
    return;
  }
  if (!allocateCompareBuffer(step.data.referenceCompareData, step.thread.blockSize) ||
      !allocateCompareBuffer(step.data.driveCompareData, step.thread.blockSize)) {
    findings.fail(status::outOfMemory, "Could not allocate miscompare info buffers");
  }
}

/// The deprecated option still switches stamping off. All drives share the record and each says so in its own log.
void forceEmbedDataOff(const Step& step) {
  auto& config = const_cast<ConfigData&>(step.config);
  {
    std::lock_guard lock(config.dataMutex);
    if (config.embedData) {
      config.embedData = false;
    }
  }
  step.log().logf(1, "Corvane: Use of DEPRECATED Embed LBA option, forcing Embed Data option to disabled");
}

void createScratch(Step& step, Findings& findings) {
  // The compare builds one sector in it even when the test names no transfer length.
  const uint64_t sectors = std::max<uint32_t>(*step.data.testMaxXferLength, 1);
  step.data.embedBuffer = new (std::nothrow) uint8_t[sectors * sectorBytes(step.thread)];
  if (step.data.embedBuffer == nullptr) {
    findings.fail(status::outOfMemory, "Corvane: Failed memory allocation. Try disabling <Embed Data>.");
    return;
  }
  step.data.powerOnTime = static_cast<double>(step.thread.timestampUs) / 1000.0;
}

void checkCombinations(Step& step, Findings& findings) {
  const ConfigData& config = step.config;
  if (!config.embedLBA) {
    forceEmbedDataOff(step);
  }
  if (configured(config.writeSameCondition) && config.useSkipCommands) {
    findings.fail(status::incompatibleOptions, "Corvane: Cannot use writesame and skip commands together");
  }
  if (configured(config.writeAtomicCondition) && configured(config.writeCondition)) {
    step.data.skipGenOnList = false;
  }
  if (config.writeSpliceDetection && !configured(config.readCondition)) {
    findings.fail(status::incompatibleOptions, "Corvane: Cannot use splice checking without read enabled");
  }
  if (configured(config.trimCondition) && config.useSkipCommands) {
    findings.fail(status::incompatibleOptions, "Corvane: Cannot use trim and skip commands together");
  } else if (findings.clean()) {
    createScratch(step, findings);
  }
}

int startTest(Step& step) {
  DriveData& data = step.data;
  Findings findings(step.log());
  checkSettings(step, findings);
  if (Ostra::ioctl(step.thread.ostraDevice, deviceParameterRequest, 1, &data.deviceParameter) != 0) {
    data.deviceParameter = 0;
  }
  releaseOldObjects(data);
  if (findings.clean()) {
    createTrace(step, findings);
  }
  if (findings.clean()) {
    createPool(step, findings);
  }
  checkCombinations(step, findings);
  data.firstExecute = firstExecuteInit;
  if (step.thread.countVarWriters("CSZoneReset") == 0) {
    data.zoneResetQueue = nullptr;
  }
  if (step.thread.countVarWriters("CVNInvalidateRanges") == 0) {
    data.invalidateQueue = nullptr;
  }
  return findings.status();
}

}  // namespace
}  // namespace agent

int Corvane::startTest(DriveThread* drive, const void* configData, void* driveData, int /*ignored*/) noexcept {
  return agent::guardMemory(*drive, "startTest", [&] {
    agent::Step step{*drive, *static_cast<DriveData*>(driveData), *static_cast<const ConfigData*>(configData)};
    return agent::startTest(step);
  });
}

}  // namespace vdl
