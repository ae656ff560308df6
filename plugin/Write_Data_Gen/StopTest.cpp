#include <string>

#include "CallbackGuard.h"
#include "Miscompare.h"
#include "Step.h"

namespace vdl {

namespace agent {

namespace {

constexpr uint64_t noMask = ~uint64_t{0};

/// Selects the bits of an LBA that name its media block: drives fail by physical blocks, not by logical ones.
uint64_t mediaMask(const DriveThread& thread) {
  const uint64_t physical = thread.physicalExponent < 64 ? uint64_t{thread.blockSize} << thread.physicalExponent : 0;
  const uint64_t sector = sectorBytes(thread);
  return physical == 0 || sector == 0 ? noMask : uint64_t{0} - physical / sector;
}

/// Later agents of the test may still look at "WriteData" when the tag buffers are gone.
void showPool(Step& step) {
  const uint32_t bytes = step.data.buckets == nullptr ? 0 : sectorBytes(step.thread) * step.config.bucketCount;
  step.data.writeData->view(step.data.buckets, bytes);
}

void dump(const Step& step, const Buffer* image, const std::string& path) {
  if (image != nullptr) {
    dumpMiscompareData(step.thread, image->data, image->size, path);
  } else {
    dumpMiscompareData(step.thread, nullptr, 0, path);
  }
}

void stopTest(Step& step) {
  showPool(step);
  const DriveData& data = step.data;
  const std::string base =
      step.config.miscompareOutputPath.empty() ? "./datacompare" : step.config.miscompareOutputPath;
  const std::string& name = step.thread.name;
  const std::string report = base + "_trace_" + name + ".txt";
  if (data.miscompareSeen) {
    // A restart that was refused leaves the failure but no trace.
    if (data.trace != nullptr) {
      data.trace->createReport(&step.thread, report, true, data.miscompareLBA, mediaMask(step.thread));
    }
    dump(step, data.driveCompareData, base + "_drive_" + name + ".bin");
    dump(step, data.referenceCompareData, base + "_reference_" + name + ".bin");
  } else if ((step.config.alwaysDumpSequence || data.failureSeen) && data.trace != nullptr) {
    data.trace->createReport(&step.thread, report, false, 0, noMask);
  }
}

}  // namespace
}  // namespace agent

int Corvane::stopTest(DriveThread* drive, const void* configData, void* driveData, int /*ignored*/) noexcept {
  if (configData == nullptr || driveData == nullptr) {
    return status::ok;
  }
  return agent::guardMemory(*drive, "stopTest", [&]() -> int {
    agent::Step step{*drive, *static_cast<DriveData*>(driveData), *static_cast<const ConfigData*>(configData)};
    agent::stopTest(step);
    return status::ok;
  });
}

}  // namespace vdl
