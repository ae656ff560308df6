#include "host/run/MiscompareRecorder.h"

#include <exception>

namespace corvane::host {

MiscompareRecorder::MiscompareRecorder(Drive& drive) : drive_(&drive), handle_(attachDevice(*this)) {}

MiscompareRecorder::~MiscompareRecorder() { detachDevice(handle_); }

int MiscompareRecorder::reportMiscompare(uint32_t /*status*/, uint64_t lba) {
  if (!lba_) {
    lba_ = lba;
  }
  return 0;
}

int MiscompareRecorder::sendRequest(const uint8_t* block, uint32_t bytes) {
  if (drive_ == nullptr) {
    return noSuchDevice;
  }
  try {
    return drive_->sendVendorRequest(block, bytes);
  } catch (const std::exception&) {
    return inputOutputError;
  }
}

}  // namespace corvane::host
