#pragma once

#include <gtest/gtest.h>

#include <vector>

#include "AtomicHash.h"
#include "support_model/CapturedStderr.h"

namespace modeltest {

/// A table, what it says on the error stream, and looks into its records.
class AtomicHashFixture : public ::testing::Test {
 protected:
  using Ids = std::vector<uint64_t>;  ///< of events, the newest first

  const vdl::LBARecord* record(uint64_t lba) const {
    const auto found = table.records().find(lba);
    return found == table.records().end() ? nullptr : &found->second;
  }

  uint64_t references(uint64_t lba) const {
    const vdl::LBARecord* found = record(lba);
    EXPECT_NE(found, nullptr) << "no record of " << lba;
    return found == nullptr ? ~uint64_t{0} : found->ref_count;
  }

  std::vector<uint64_t> ids(uint64_t lba) const {
    std::vector<uint64_t> found;
    if (const vdl::LBARecord* r = record(lba)) {
      for (const vdl::Event* e = r->events; e != nullptr; e = e->next) {
        found.push_back(e->cmd_id);
      }
    }
    return found;
  }

  const vdl::Event& event(uint64_t lba, std::size_t position) const {
    const vdl::Event* e = record(lba)->events;
    for (; position > 0; --position) {
      e = e->next;
    }
    return *e;
  }

  bool known(uint64_t lba) const { return table.isStateKnown(table.records().find(lba)); }

  CapturedStderr errors;
  vdl::AtomicHash table;
};

}  // namespace modeltest
