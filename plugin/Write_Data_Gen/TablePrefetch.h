#pragma once

#include <cstdint>

#include "Step.h"

namespace vdl::agent {

/// Asks the processor for what the next commands will touch in the table, so that it has arrived when they are issued.
/// With many writes outstanding nothing of it is in a cache any more. Results do not depend on it.
///
/// One for each step; what hangs on what else is asked for later in the step, or in the next one.
class TablePrefetch {
 public:
  /// As the step begins: the range that the test offers is known, and what its write will look for first.
  explicit TablePrefetch(const DriveData& data)
      : data_(data), choice_(*data.lba), large_(data.atomicHash.outgrowsCaches()) {
    if (large_) {
      data.atomicHash.prefetchPlace(choice_);
    }
  }

  /// As a write's preparing begins, some time before the table is told of it.
  static void askForWrite(const DriveData& data, uint64_t lba) {
    if (data.atomicHash.outgrowsCaches()) {
      data.atomicHash.prefetchPage(lba);
    }
  }

  /// When the step's command is prepared. A range that this command left unused is offered again.
  void askForNext() const;

 private:
  /// For the writes that are first, second, third and fourth in line to be read back.
  void askForReadBacks() const;

  const DriveData& data_;
  uint64_t choice_;
  bool large_;
};

}  // namespace vdl::agent
