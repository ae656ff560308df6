#pragma once

#include <cstdint>
#include <string>

#include "host/run/TestRun.h"

namespace corvane::host {

/// Makes the status text of a running test; rates are those since the text before.
class Progress {
 public:
  /// @param timeLimitMs of the test; 0: none
  explicit Progress(uint64_t timeLimitMs) : timeLimitMs_(timeLimitMs) {}

  /// e.g. "0:12 of 0:30  123,456 commands  211.3 MB/s written  208.9 MB/s compared  32 outstanding  0 findings".
  std::string next(const ProgressSnapshot& now, uint64_t findings, bool stopping);

 private:
  uint64_t timeLimitMs_;
  uint64_t lastMs_ = 0;
  uint64_t lastBytesWritten_ = 0;
  uint64_t lastBytesCompared_ = 0;
};

}  // namespace corvane::host
