#pragma once

#include <algorithm>
#include <cstdint>
#include <optional>

#include "RecordQueue.h"

namespace vdl::agent {

/// Takes the first record of a tag out of its queue; nothing when the tag has none.
template <typename Record>
std::optional<Record> takeByTag(RecordQueue<Record>& records, uint32_t tag) {
  const auto found =
      std::find_if(records.begin(), records.end(), [tag](const Record& record) { return record.tagId == tag; });
  if (found == records.end()) {
    return std::nullopt;
  }
  std::optional<Record> record = *found;
  records.erase(found);
  return record;
}

}  // namespace vdl::agent
