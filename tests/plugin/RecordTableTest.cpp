#include "RecordTable.h"

#include <gtest/gtest.h>

#include <map>
#include <random>
#include <vector>

#include "AtomicHash.h"
#include "BlockRun.h"
#include "support_model/Allocations.h"

namespace vdl {
namespace {

constexpr uint64_t top = ~uint64_t{0};

using Lbas = std::vector<uint64_t>;

Lbas lbasOf(const RecordTable& table) {
  Lbas lbas;
  for (const auto& [lba, record] : table) {
    lbas.push_back(lba);
  }
  return lbas;
}

Lbas visited(const RecordTable& table, uint64_t first, uint64_t last) {
  Lbas lbas;
  table.visit(first, last, [&lbas](uint64_t lba, const LBARecord&) { lbas.push_back(lba); });
  return lbas;
}

/// Puts a block on record and marks it as itself.
void put(RecordTable& table, uint64_t lba) {
  const auto block = static_cast<uint32_t>(lba % 64);
  RecordPage* page = table.reserve(lba / 64, uint64_t{1} << block);
  ASSERT_NE(page, nullptr);
  page->record(block)->ref_count = lba;
}

void take(RecordTable& table, uint64_t lba) { table.remove(lba / 64, uint64_t{1} << lba % 64); }

TEST(RecordTable, StartsEmpty) {
  const RecordTable table;
  EXPECT_TRUE(table.empty());
  EXPECT_EQ(table.begin(), table.end());
  EXPECT_EQ(table.find(0), table.end());
  EXPECT_EQ(table.record(0), nullptr);
  EXPECT_THROW(table.at(0), std::out_of_range);
  EXPECT_EQ(visited(table, 0, top), Lbas{});
  EXPECT_EQ(table.bytes(), 0U);
}

TEST(RecordTable, ShowsBlocksInAscendingOrder) {
  RecordTable table;
  const Lbas ascending{0, 1, 63, 64, 1000, 1023, uint64_t{1} << 40, top - 64, top - 1, top};
  for (const uint64_t lba : {top, Lbas::value_type{1000}, uint64_t{64}, top - 1, uint64_t{0}, uint64_t{1} << 40,
                             uint64_t{63}, top - 64, uint64_t{1}, uint64_t{1023}}) {
    put(table, lba);
  }
  EXPECT_EQ(lbasOf(table), ascending);
  EXPECT_EQ(table.size(), ascending.size());
  for (const auto& [lba, record] : table) {
    EXPECT_EQ(record.ref_count, lba);
    EXPECT_EQ(&record, table.record(lba));
    EXPECT_EQ(table.find(lba)->first, lba);
    EXPECT_EQ(&table.find(lba)->second, &record);
  }
  EXPECT_EQ(visited(table, 0, top), ascending);
  EXPECT_EQ(visited(table, 1, 63), (Lbas{1, 63}));
  EXPECT_EQ(visited(table, 2, 999), (Lbas{63, 64}));
  EXPECT_EQ(visited(table, top - 1, top), (Lbas{top - 1, top}));
  EXPECT_EQ(visited(table, top, top), Lbas{top});
  EXPECT_EQ(visited(table, 64, 63), Lbas{});
}

TEST(RecordTable, AWalkCanStartAnywhere) {
  RecordTable table;
  for (const uint64_t lba : {7U, 9U, 64U, 6400U}) {
    put(table, lba);
  }
  auto record = table.find(9);
  EXPECT_EQ((++record)->first, 64U);
  EXPECT_EQ((++record)->first, 6400U);
  EXPECT_EQ(++record, table.end());
}

TEST(RecordTable, ReserveAddsOnlyWhatIsMissing) {
  RecordTable table;
  put(table, 3);
  put(table, 60);
  RecordPage* page = table.reserve(0, top);
  ASSERT_NE(page, nullptr);
  EXPECT_EQ(table.size(), 64U);
  for (uint32_t block = 0; block < 64; ++block) {
    EXPECT_EQ(page->record(block)->ref_count, block == 3 || block == 60 ? block : 0U);
  }
  table.remove(0, ~(uint64_t{1} << 60));
  EXPECT_EQ(lbasOf(table), Lbas{60});
  EXPECT_EQ(table.at(60).ref_count, 60U);
}

TEST(RecordTable, AgreesWithAMapWhateverComesAndGoes) {
  std::mt19937_64 rng(1);
  // Thousands of pages, or few of them and full, at the bottom and at the top of all LBAs.
  for (const uint64_t range : {uint64_t{300}, uint64_t{20'000}, uint64_t{10'000'000}, top}) {
    RecordTable table;
    std::map<uint64_t, uint64_t> model;
    for (int i = 0; i < 10'000; ++i) {
      const uint64_t first = range == top ? top - rng() % 100'000 : rng() % range;
      const uint64_t blocks = rng() % 3 == 0 ? rng() << first % 64 : uint64_t{0xFF} << first % 64;
      const bool adds = i < 6'000 ? rng() % 3 != 0 : rng() % 3 == 0;
      uint64_t present = 0;
      if (adds) {
        ASSERT_NE(table.reserve(first / 64, blocks | uint64_t{1} << first % 64), nullptr);
      } else if (const RecordPage* page = table.page(first / 64)) {
        present = page->present() & blocks;
      }
      for (uint32_t block = 0; block < 64; ++block) {
        const uint64_t lba = first / 64 * 64 + block;
        if (adds && ((blocks | uint64_t{1} << first % 64) >> block & 1) != 0 && model.emplace(lba, lba ^ 5).second) {
          table.record(lba)->ref_count = lba ^ 5;
        } else if ((present >> block & 1) != 0) {
          model.erase(lba);
        }
      }
      if (present != 0) {
        table.remove(first / 64, present);
      }
      ASSERT_EQ(table.size(), model.size());
    }
    auto expected = model.begin();
    for (const auto& [lba, record] : table) {
      ASSERT_EQ(lba, expected->first);
      ASSERT_EQ(record.ref_count, expected->second);
      ++expected;
    }
    EXPECT_EQ(expected, model.end());
    EXPECT_FALSE(model.empty());
    for (int i = 0; i < 100; ++i) {
      const uint64_t first = rng() % range;
      ASSERT_EQ(table.record(first) == nullptr, model.count(first) == 0);
    }
  }
}

TEST(RecordTable, APlaceIsEqualOnlyToItself) {
  RecordTable table;
  for (const uint64_t lba : {0U, 1U, 64U}) {
    put(table, lba);
  }
  EXPECT_EQ(table.find(0), table.begin());
  EXPECT_EQ(table.find(1), table.find(1));
  EXPECT_NE(table.find(0), table.end());
  EXPECT_NE(table.find(0), table.find(1)) << "neighbours on a page";
  EXPECT_NE(table.find(0), table.find(64)) << "the first of two pages";
  auto last = table.find(64);
  EXPECT_EQ(++last, table.end()) << "wherever the walk came from";
}

TEST(RecordTable, ManyPagesOutgrowTheCachesUntilTheyAreGone) {
  RecordTable table;
  for (uint64_t number = 0; number < 8192; ++number) {
    put(table, 64 * number);
  }
  put(table, 1);
  EXPECT_FALSE(table.outgrowsCaches()) << "another block of a page";
  put(table, 64 * 8192);
  EXPECT_TRUE(table.outgrowsCaches());
  table.remove(100, 1);
  EXPECT_FALSE(table.outgrowsCaches());
}

TEST(RecordTable, APageAtHomeIsTheBlocksOwn) {
  RecordTable table;
  EXPECT_EQ(table.pageAtHome(0), nullptr);
  put(table, 64 * 7 + 5);
  EXPECT_EQ(table.pageAtHome(64 * 7), table.page(7)) << "nothing else is in its way";
  EXPECT_EQ(table.pageAtHome(64 * 7 + 63), table.page(7));
  for (uint64_t number = 8; number < 2000; ++number) {
    EXPECT_EQ(table.pageAtHome(64 * number), nullptr) << "not on record: " << number;
  }
  uint64_t atHome = 0;
  for (uint64_t number = 0; number < 2000; ++number) {
    put(table, 64 * number);
    const RecordPage* const found = table.pageAtHome(64 * number + 1);
    EXPECT_TRUE(found == nullptr || found == table.page(number));
    atHome += found == nullptr ? 0 : 1;
  }
  EXPECT_GT(atHome, 1000U) << "most pages stand where they are looked for first";
}

TEST(RecordTable, TellsWhatItTakes) {
  const int64_t before = modeltest::liveBytes();
  RecordTable table;
  for (const uint64_t pages : {1U, 9U, 100U, 10'000U, 100'000U}) {
    for (uint64_t number = 0; number < pages; ++number) {
      ASSERT_NE(table.reserve(number, 1), nullptr);
    }
    const auto taken = static_cast<double>(modeltest::liveBytes() - before);
    // The allocator rounds up, to whole pages of the machine when much is asked for.
    EXPECT_LE(static_cast<double>(table.bytes()), taken) << pages;
    EXPECT_GE(static_cast<double>(table.bytes()), taken * 0.97) << pages;
  }
}

TEST(PageStore, PagesLieInsideTheirChunk) {
  // Pages of other sizes before them let the last of the smallest meet the end of the chunk at different distances.
  for (uint32_t others = 0; others < 20; ++others) {
    PageStore store;
    ASSERT_NE(store.take(2), nullptr);
    const modeltest::Extent chunk = modeltest::lastAllocation();
    for (uint32_t i = 0; i < others; ++i) {
      ASSERT_TRUE(chunk.holds(store.take(1), RecordPage::bytesOf(1)));
    }
    uint32_t pages = 0;
    for (RecordPage* page = store.take(0); modeltest::lastAllocation().first == chunk.first; page = store.take(0)) {
      ASSERT_TRUE(chunk.holds(page, RecordPage::bytesOf(0))) << others << " others, page " << pages;
      ++pages;
    }
    EXPECT_GT(pages, 1000U);
  }
}

TEST(RecordTable, APageWithRoomTakesBlocksInPlace) {
  RecordTable table;
  for (const uint32_t records : {1U, 4U, 16U, 32U, 64U}) {
    const uint64_t number = records;
    const uint64_t full = records == 64 ? top : (uint64_t{1} << records) - 1;
    // One less than fills the page, where that needs the same room.
    const uint64_t most = records == 1 ? full : full >> 1;
    RecordPage* const page = table.reserve(number, most);
    ASSERT_NE(page, nullptr);
    ASSERT_EQ(page->room(), records);
    EXPECT_EQ(table.reserve(number, full), page);
    EXPECT_EQ(page->count(), records);
  }
}

TEST(RecordTable, ARemovedPageHidesNoOther) {
  for (uint64_t number = 1; number < 200; ++number) {
    RecordTable table;
    put(table, 0);
    put(table, 64 * number);
    take(table, 64 * number);
    EXPECT_NE(table.record(0), nullptr) << number;
    EXPECT_EQ(table.page(number), nullptr);
    put(table, 64 * number);
    take(table, 0);
    EXPECT_EQ(table.page(0), nullptr);
    EXPECT_NE(table.record(64 * number), nullptr) << number;
  }
}

TEST(RecordTable, UsesAgainWhatWasFreed) {
  RecordTable table;
  for (uint64_t lba = 0; lba < 50'000; ++lba) {
    put(table, lba * 100);
  }
  const uint64_t before = modeltest::allocations();
  const std::size_t bytes = table.bytes();
  for (uint64_t lba = 0; lba < 50'000; ++lba) {
    take(table, lba * 100);
    put(table, (lba + 50'000) * 100);
  }
  EXPECT_EQ(modeltest::allocations(), before);
  EXPECT_EQ(table.bytes(), bytes);
}

TEST(RecordTable, APageGivesRoomBackWithItsBlocks) {
  RecordTable table;
  ASSERT_NE(table.reserve(5, top), nullptr);
  EXPECT_EQ(table.page(5)->room(), 64U);
  table.remove(5, ~uint64_t{0x8001});
  EXPECT_EQ(table.page(5)->room(), 4U);
  table.remove(5, 1);
  EXPECT_EQ(table.page(5)->room(), 4U);
  table.remove(5, 0x8000);
  EXPECT_EQ(table.page(5), nullptr);
}

TEST(RecordTable, WithoutMemoryNothingChanges) {
  RecordTable table;
  {
    const modeltest::FailNothrow noMemory;
    EXPECT_EQ(table.reserve(1, 1), nullptr);
  }
  EXPECT_TRUE(table.empty());
  uint64_t number = 0;
  for (; number < 8; ++number) {
    ASSERT_NE(table.reserve(number, 1), nullptr);
  }
  {
    const modeltest::FailNothrow noMemory;
    while (table.reserve(number, 1) != nullptr) {
      ++number;
    }
    EXPECT_EQ(noMemory.failed(), 1U);
    EXPECT_EQ(table.size(), number);
    EXPECT_EQ(table.page(number), nullptr);
  }
  EXPECT_NE(table.reserve(number, 1), nullptr);
  EXPECT_EQ(lbasOf(table).size(), number + 1);
}

TEST(RecordTable, APageStaysAsItWasWhenItCannotGrow) {
  RecordTable table;
  put(table, 7);
  const modeltest::FailNothrow noMemory;
  // Pages of other numbers use the room up that this one needs.
  for (uint64_t number = 1; number < 10 && table.reserve(number, top) != nullptr; ++number) {
  }
  uint64_t rest = 0;
  for (; rest < 200 && table.reserve(0, top) != nullptr; ++rest) {
    table.remove(0, ~uint64_t{0x80});
    table.remove(0, 0x80);
    put(table, 7);
  }
  EXPECT_EQ(table.record(7)->ref_count, 7U);
}

/// Blocks that are written and not read back yet, with everything that the table needs for them.
double bytesForABlock(uint64_t blocks, uint64_t step) {
  AtomicHash table;
  std::mt19937_64 rng(3);
  uint64_t held = 0;
  for (uint64_t id = 1; held < 300'000; ++id, held += blocks) {
    const uint64_t first = rng() % (uint64_t{1} << 40);
    EXPECT_EQ(table.writeIssued(id, BlockRun{first, first + blocks * step, static_cast<uint32_t>(step)},
                                {7, {true, id, first}, true, true}),
              0);
  }
  return static_cast<double>(table.bytes()) / static_cast<double>(held);
}

TEST(RecordTable, AnOutstandingBlockTakesAtMostTwoHundredBytes) {
  EXPECT_LE(bytesForABlock(1, 1), 200.0) << "alone in its neighbourhood";
  EXPECT_LE(bytesForABlock(8, 1), 200.0);
  EXPECT_LE(bytesForABlock(8, 2), 200.0);
  EXPECT_LE(bytesForABlock(9, 1), 200.0) << "one more than a page of eight";
  EXPECT_LE(bytesForABlock(256, 1), 200.0);
}

TEST(RunPieces, CutARunAtPagesWithoutWrapping) {
  const auto pieces = [](const BlockRun& run) {
    std::vector<std::pair<uint64_t, uint64_t>> found;
    for (RunPieces rest(run); rest.more();) {
      const RunPiece piece = rest.take();
      found.emplace_back(piece.page, piece.blocks);
    }
    return found;
  };
  using Found = std::vector<std::pair<uint64_t, uint64_t>>;
  EXPECT_EQ(pieces({5, 5}), Found{});
  EXPECT_EQ(pieces({5, 4}), Found{});
  EXPECT_EQ(pieces({5, 5, 2}), Found{});
  EXPECT_EQ(pieces({5, 4, 3}), Found{});
  EXPECT_EQ(pieces({62, 67}), (Found{{0, uint64_t{3} << 62}, {1, 7}}));
  EXPECT_EQ(pieces({0, 128}), (Found{{0, top}, {1, top}}));
  EXPECT_EQ(pieces({61, 66, 2}), (Found{{0, uint64_t{5} << 61}, {1, 2}}));
  EXPECT_EQ(pieces({62, 66, 2}), (Found{{0, uint64_t{1} << 62}, {1, 1}}));
  EXPECT_EQ(pieces({top - 2, top}), (Found{{top / 64, uint64_t{3} << 61}}));
  EXPECT_EQ(pieces({top - 3, top, 2}), (Found{{top / 64, uint64_t{5} << 60}}));
}

}  // namespace
}  // namespace vdl
