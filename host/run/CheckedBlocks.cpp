#include "host/run/CheckedBlocks.h"

#include <algorithm>
#include <functional>
#include <numeric>

namespace corvane::host {

const char* uncheckableText(Uncheckable reason) {
  switch (reason) {
    case Uncheckable::notAwaited:
      return "not written in this test, read back already, or left out by a slid read";
    case Uncheckable::writeFailed:
      return "the write over it failed or was lost";
    case Uncheckable::zoneReset:
      return "its zone was reset";
    case Uncheckable::invalidated:
      return "invalidated: only the old content would be noticed";
    case Uncheckable::atomicOverUnknown:
      return "an unfinished atomic write over unknown content: noticed only in the new content";
    case Uncheckable::probe:
      return "read only to see whether a failed write left it readable";
    case Uncheckable::commandFailed:
      return "the read or verify failed";
    case Uncheckable::verifyMayDiffer:
      return "a verify over content that may differ";
    case Uncheckable::noData:
      return "the read brought no data";
    case Uncheckable::untold:
      break;
  }
  return "the commands do not show what was expected";
}

uint64_t CheckedBlocks::checkedAgainstSeveral() const {
  return std::accumulate(severalOutcomes.begin(), severalOutcomes.end(), uint64_t{0});
}

uint64_t CheckedBlocks::uncheckable() const {
  return std::accumulate(notCheckable.begin(), notCheckable.end(), uint64_t{0});
}

CheckedBlocks& CheckedBlocks::operator+=(const CheckedBlocks& other) {
  const auto add = [](auto& to, const auto& from) {
    std::transform(to.begin(), to.end(), from.begin(), to.begin(), std::plus<>());
  };
  oneOutcome += other.oneOutcome;
  add(severalOutcomes, other.severalOutcomes);
  add(notCheckable, other.notCheckable);
  return *this;
}

}  // namespace corvane::host
