#pragma once

#include <array>

#include "host/run/CheckedBlocks.h"
#include "host/run/Counter.h"

namespace corvane::host {

/// The running figures of a CheckAccount, written on its thread.
struct CheckCounters {
  Counter oneOutcome;
  std::array<Counter, CheckedBlocks::mostOutcomes + 1> severalOutcomes;
  std::array<Counter, uncheckableReasons> notCheckable;

  void add(BlockWorth worth, uint64_t blocks) {
    if (worth.outcomes == 1) {
      oneOutcome.add(blocks);
    } else if (worth.outcomes > 1) {
      severalOutcomes[worth.outcomes].add(blocks);
    } else {
      notCheckable[static_cast<size_t>(worth.reason)].add(blocks);
    }
  }

  CheckedBlocks get() const;
};

}  // namespace corvane::host
