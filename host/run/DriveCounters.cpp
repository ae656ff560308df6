#include "host/run/DriveCounters.h"

#include <algorithm>

namespace corvane::host {

CheckedBlocks CheckCounters::get() const {
  const auto read = [](const Counter& counter) { return counter.get(); };
  CheckedBlocks out;
  out.oneOutcome = oneOutcome.get();
  std::transform(severalOutcomes.begin(), severalOutcomes.end(), out.severalOutcomes.begin(), read);
  std::transform(notCheckable.begin(), notCheckable.end(), out.notCheckable.begin(), read);
  return out;
}

DriveTotals DriveCounters::totals(uint32_t sectorBytes) const {
  DriveTotals out;
  for (size_t kind = 0; kind < commandKinds; ++kind) {
    out.issued[kind] = issued[kind].get();
    out.completed[kind] = completed[kind].get();
  }
  out.failed = failed.get();
  out.blocksWritten = blocksWritten.get();
  out.bytesWritten = out.blocksWritten * sectorBytes;
  out.blocksTrimmed = blocksTrimmed.get();
  out.blocksRead = blocksRead.get();
  out.bytesRead = out.blocksRead * sectorBytes;
  out.blocksCompared = blocksCompared.get();
  out.bytesCompared = out.blocksCompared * sectorBytes;
  out.checked = checked.get();
  out.resets = resets.get();
  out.powerCycles = powerCycles.get();
  out.connectionsLost = connectionsLost.get();
  out.zoneResets = zoneResets.get();
  out.invalidations = invalidations.get();
  out.heldBack = heldBack.get();
  out.retried = retried.get();
  out.stray = stray.get();
  out.outstanding = static_cast<uint32_t>(outstanding.get());
  out.maxOutstanding = static_cast<uint32_t>(maxOutstanding.get());
  return out;
}

}  // namespace corvane::host
