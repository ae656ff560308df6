#pragma once

#include <cstdint>
#include <map>
#include <vector>

#include "host/fault/FaultLedger.h"

namespace corvane::host {

/// What a faulty drive shows differently from the honest drive beneath it, block by block.
class Alterations {
 public:
  enum class Life : uint8_t {
    untilOverwritten,
    once,  ///< the next read or verify of the block gets it, and none after
  };
  struct Entry {
    std::vector<uint8_t> content;  ///< a sector; empty: the block cannot be read
    FaultLedger::Id injection = 0;
    Life life = Life::untilOverwritten;
  };

  bool empty() const { return entries_.empty(); }
  bool touches(uint64_t first, uint64_t end) const {
    const auto next = entries_.lower_bound(first);
    return next != entries_.end() && next->first < end;
  }

  /// The block's entry; null when it shows its honest content.
  Entry* find(uint64_t lba) {
    const auto found = entries_.find(lba);
    return found == entries_.end() ? nullptr : &found->second;
  }
  void set(uint64_t lba, Entry entry) { entries_.insert_or_assign(lba, std::move(entry)); }
  void erase(uint64_t lba) { entries_.erase(lba); }

 private:
  std::map<uint64_t, Entry> entries_;
};

}  // namespace corvane::host
