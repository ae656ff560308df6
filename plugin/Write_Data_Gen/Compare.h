#pragma once

#include <cstdint>

#include "Step.h"

namespace vdl::agent {

/// Compares every kept read that waits for no write any more, up to the first failure.
///
/// @return 0, or the failure's status, already logged
int32_t doCompares(Step& step);

/// Judges one read by the histories of its blocks and ends it in the table.
///
/// @return 0, or the failure's status; a finding is logged, traced and dumped
int32_t judgeByHistory(Step& step, ComparableReadData& read);

/// Bytes from one block of the read's data to the next: sectors, or when the size says so sectors with their end-to-end
/// protection behind them.
inline uint64_t blockStride(const ComparableReadData& read, uint64_t sector) {
  const bool withTrailer = read.data.size == read.xferLength * (sector + e2eBytes);
  return withTrailer ? sector + e2eBytes : sector;
}

}  // namespace vdl::agent
