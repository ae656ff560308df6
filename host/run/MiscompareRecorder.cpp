#include "host/run/MiscompareRecorder.h"

namespace corvane::host {

MiscompareRecorder::MiscompareRecorder() : handle_(attachDevice(*this)) {}

MiscompareRecorder::~MiscompareRecorder() { detachDevice(handle_); }

int MiscompareRecorder::reportMiscompare(uint32_t /*status*/, uint64_t lba) {
  if (!lba_) {
    lba_ = lba;
  }
  return 0;
}

}  // namespace corvane::host
