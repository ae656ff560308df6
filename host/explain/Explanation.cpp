#include "host/explain/Explanation.h"

#include <array>

namespace corvane::host {

const char* findingKindName(FindingKind kind) {
  static constexpr std::array names{"old-data",
                                    "other-lba",
                                    "other-drive",
                                    "zeros",
                                    "torn",
                                    "bit-flips",
                                    "protection-bytes",
                                    "noise",
                                    "unreadable",
                                    "write-splice",
                                    "atomic-order",
                                    "verify-alarm",
                                    "old-data-expected-gone",
                                    "unknown"};
  return names.at(static_cast<size_t>(kind));
}

const char* rereadName(Reread reread) {
  static constexpr std::array names{"same", "as expected", "different", "overwritten", "failed"};
  return names.at(static_cast<size_t>(reread));
}

const char* neighbourStateName(NeighbourBlock::State state) {
  static constexpr std::array names{"expected", "old", "zeros", "other", "unknown", "unreadable"};
  return names.at(static_cast<size_t>(state));
}

}  // namespace corvane::host
