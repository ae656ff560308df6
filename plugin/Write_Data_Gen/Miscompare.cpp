#include "Miscompare.h"

#include <array>
#include <cstdio>
#include <cstring>

#include "FileHelpers.h"
#include "ostra/Ostra.h"

namespace vdl::agent {

namespace {

constexpr uint32_t setShowstopRequest = 178;
constexpr uint32_t getShowstopRequest = 179;
constexpr uint32_t miscompareLbaRequest = 218;
constexpr int noDevice = -1;

using RequestBlock = std::array<uint8_t, 112>;

/// The vendor command that stops the drive's firmware where it is.
RequestBlock showstopRequest() {
  constexpr std::array<uint8_t, 10> commandDescriptorBlock = {0xC0, 0x81, 0x91, 0x02, 0, 0, 0, 0, 0, 0};
  RequestBlock block{};
  block[0] = static_cast<uint8_t>(block.size());
  block[4] = 1;
  block[6] = static_cast<uint8_t>(commandDescriptorBlock.size());
  std::memcpy(block.data() + 24, commandDescriptorBlock.data(), commandDescriptorBlock.size());
  return block;
}

int sendShowstop(int device) {
  if (device == noDevice) {
    return status::showstopFailed;
  }
  uint32_t oldSetting = 0;
  uint32_t newSetting = 1;
  Ostra::ioctl(device, getShowstopRequest, 1, &oldSetting);
  Ostra::ioctl(device, setShowstopRequest, 1, &newSetting);
  RequestBlock request = showstopRequest();
  const int result = Ostra::send(device, request.data());
  if (newSetting != oldSetting) {
    Ostra::ioctl(device, setShowstopRequest, 1, &oldSetting);
  }
  return result;
}

}  // namespace

void triggerMiscompare(Step& step, uint64_t lba, BlockNum expected, BlockNum found, uint64_t cmdId, bool flag) {
  const int device = step.thread.ostraDevice;
  if (step.config.showstopOnMiscompare) {
    if (const int result = sendShowstop(device); result != 0) {
      step.log().logf(2, "Failed to issue Showstop, ostra err %i", result);
    }
  }
  if (device != noDevice) {
    uint32_t zero = 0;
    uint64_t miscompareLba = lba;
    Ostra::ioctl(device, miscompareLbaRequest, 2, &zero, &miscompareLba);
  }
  step.data.trace->traceMiscompare(lba, expected, found, cmdId, flag);
  step.data.miscompareLBA = lba;
  step.data.miscompareSeen = true;
}

void dumpMiscompareData(DriveThread& thread, const uint8_t* data, uint64_t bytes, std::string path) {
  int result = 0;
  FILE* file =
      fs::openFile(path, "wb", result, fs::fallBackToCurrentDirectory | fs::numberedName | fs::createMissingParents);
  if (file == nullptr) {
    thread.eventLog->logf(2, "dumpMiscompareData(): could not open '%s' for writing", path.c_str());
    return;
  }
  if (bytes != 0) {
    std::fwrite(data, 1, bytes, file);
  }
  std::fflush(file);
  std::fclose(file);
  thread.eventLog->logf(2, "Miscompare Data Written To '%s'", path.c_str());
}

}  // namespace vdl::agent
