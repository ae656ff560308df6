#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "tests/model/Medium.h"
#include "tests/plugin/support_model/TableModel.h"

namespace refmodel {

using modeltest::Model;
using modeltest::ModelEvent;
using modeltest::ModelPeek;

/// One block of a read: a full copy of the history that it may show, and the event that its data matched.
struct SeenBlock {
  uint64_t lba = 0;
  std::vector<ModelEvent> history;  ///< newest first
  std::optional<size_t> observed;   ///< place in `history`
};

/// What one read may legally have seen, block by block in ascending order, with plain copies of everything.
class ReadContext {
 public:
  /// The blocks from `first` to `last`, both included, on which the read waits.
  ReadContext(const Model& table, uint64_t first, uint64_t last, uint64_t id);

  size_t size() const { return blocks_.size(); }

  /// Matches a block's data with the events that may explain them.
  /// @return 0; -1003 when none does; -1004 for a block that is not in the context
  int observe(uint64_t lba, const Bytes& data);

  /// The content that is expected of a block; status -1004 for one that is not in the context.
  ModelPeek peek(uint64_t lba) const;

  /// The block at which a segment of an atomic write was seen in part; nothing when the whole read is consistent.
  std::optional<uint64_t> brokenAt() const;

  /// The table of a block's history; empty for one that is not in the context.
  std::string historyText(uint64_t lba) const;

 private:
  const SeenBlock* find(uint64_t lba) const;

  std::vector<SeenBlock> blocks_;
};

}  // namespace refmodel
