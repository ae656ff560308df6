#include "host/drive/sim/SimPages.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <cstring>
#include <fstream>
#include <new>
#include <vector>

namespace corvane::host {
namespace {

uint64_t addressSpaceBytes() {
  uint64_t pages = 0;
  std::ifstream("/proc/self/statm") >> pages;
  return pages * static_cast<uint64_t>(sysconf(_SC_PAGESIZE));
}

/// Pages with numbers of their own written over the whole of them.
struct MadePages {
  explicit MadePages(uint64_t bytes) : pageBytes(bytes), pages(bytes) {}

  void make(uint64_t page) {
    uint8_t* const memory = pages.make(page);
    std::memset(memory, markOf(numbers.size()), pageBytes);
    numbers.push_back(page);
    places.push_back(memory);
  }

  /// The first page, in the order of making, that is not where it was or not as it was written; their number if none.
  size_t firstChanged() {
    for (size_t i = 0; i < numbers.size(); ++i) {
      const std::vector<uint8_t> written(pageBytes, markOf(i));
      if (pages.find(numbers[i]) != places[i] || std::memcmp(places[i], written.data(), pageBytes) != 0) {
        return i;
      }
    }
    return numbers.size();
  }

  static uint8_t markOf(size_t index) { return static_cast<uint8_t>(index % 251 + 1); }

  uint64_t pageBytes;
  SimPages pages;
  std::vector<uint64_t> numbers;
  std::vector<uint8_t*> places;
};

TEST(SimPages, APageThatNobodyMadeIsNotThere) {
  SimPages pages(4096);
  EXPECT_EQ(pages.find(0), nullptr);
  EXPECT_EQ(pages.find(~uint64_t{0}), nullptr);
  pages.make(7);
  for (uint64_t page = 0; page < 2000; ++page) {
    EXPECT_EQ(pages.find(page) != nullptr, page == 7) << page;
  }
}

TEST(SimPages, APageIsFoundAlsoAfterItWasLookedForInVain) {
  SimPages pages(4096);
  for (const uint64_t page : {uint64_t{3}, uint64_t{4}, uint64_t{100'000}}) {
    EXPECT_EQ(pages.find(page), nullptr);
    uint8_t* const made = pages.make(page);
    EXPECT_EQ(pages.find(page), made);
  }
}

TEST(SimPages, PagesOfEverySizeStayWhereTheyAreAndShareNothing) {
  for (const uint64_t sector : {512U, 520U, 1024U, 1032U, 2048U, 2056U, 4096U, 4104U}) {
    MadePages made(64 * sector);
    // Beyond the border where pieces of memory become large ones, in an order that is not that of the numbers.
    for (uint64_t i = 0; i < 10'000'000 / made.pageBytes; ++i) {
      made.make(i * 37 % 1009);
    }
    EXPECT_EQ(made.firstChanged(), made.numbers.size()) << "sectors of " << sector;
    EXPECT_EQ(made.pages.count(), made.numbers.size()) << "sectors of " << sector;
  }
}

TEST(SimPages, PagesFarApartAreKeptApart) {
  MadePages made(4096);
  for (const uint64_t page : {uint64_t{0}, uint64_t{511}, uint64_t{512}, uint64_t{1} << 32, uint64_t{1} << 58,
                              ~uint64_t{0} - 512, ~uint64_t{0}}) {
    made.make(page);
  }
  EXPECT_EQ(made.firstChanged(), 7U);
  EXPECT_EQ(made.pages.find(uint64_t{1} << 33), nullptr);
  EXPECT_EQ(made.pages.find((uint64_t{1} << 58) + 1), nullptr);
  EXPECT_EQ(made.pages.count(), 7U);
}

TEST(SimPages, APageMayBeLargerThanTheSystemsLargePages) {
  MadePages made((uint64_t{2} << 20) + 4096);
  for (uint64_t page = 0; page < 6; ++page) {
    made.make(page);
  }
  EXPECT_EQ(made.firstChanged(), 6U);
}

TEST(SimPages, ManySmallDrivesTakeLittleMemory) {
  const uint64_t before = addressSpaceBytes();
  std::vector<SimPages> drives;
  for (int i = 0; i < 100; ++i) {
    drives.emplace_back(uint64_t{4096}).make(0);
  }
  EXPECT_LT(addressSpaceBytes(), before + (uint64_t{100} << 20));
}

TEST(SimPages, TheMemoryIsGivenBack) {
  const uint64_t before = addressSpaceBytes();
  for (int i = 0; i < 50; ++i) {
    SimPages pages(uint64_t{1} << 20);
    for (uint64_t page = 0; page < 8; ++page) {
      pages.make(page);
    }
    EXPECT_GT(addressSpaceBytes(), before + (uint64_t{7} << 20));
  }
  EXPECT_LT(addressSpaceBytes(), before + (uint64_t{100} << 20));
}

TEST(SimPages, APageForWhichThereIsNoMemoryIsNotThere) {
  SimPages pages(uint64_t{1} << 60);
  EXPECT_THROW(pages.make(5), std::bad_alloc);
  EXPECT_EQ(pages.find(5), nullptr);
  EXPECT_THROW(pages.make(5), std::bad_alloc);
  EXPECT_EQ(pages.find(5), nullptr);
  EXPECT_EQ(pages.count(), 0U);
}

}  // namespace
}  // namespace corvane::host
