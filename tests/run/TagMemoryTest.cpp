#include "host/run/TagMemory.h"

#include <gtest/gtest.h>

#include <utility>
#include <vector>

#include "host/fault/FaultyDrive.h"
#include "tests/run/FakeDrive.h"

namespace corvane::host {
namespace {

using Told = std::vector<std::pair<uint8_t*, uint64_t>>;

/// A drive that notes which memory it is told of.
class ToldDrive : public corvane::host::testing::FakeDrive {
 public:
  explicit ToldDrive(Told& told) : told_(told) {}
  void useMemory(uint8_t* data, uint64_t bytes) noexcept override { told_.emplace_back(data, bytes); }

 private:
  Told& told_;
};

TEST(TagMemoryTest, ADriveIsToldOfAllOfItUntilItsEnd) {
  constexpr uint64_t page = 4096;
  Told told;
  ToldDrive drive(told);
  uint8_t* first = nullptr;
  {
    TagMemory memory(3, page + 1);
    EXPECT_EQ(memory.of(2), memory.of(0) + 4 * page);
    EXPECT_TRUE(told.empty());
    memory.lendTo(drive);
    first = memory.of(0);
    EXPECT_EQ(told, (Told{{first, 6 * page}}));
  }
  EXPECT_EQ(told, (Told{{first, 6 * page}, {nullptr, 0}}));
}

TEST(TagMemoryTest, ADriveThatIsGoneIsToldNothingMore) {
  Told told;
  {
    ToldDrive drive(told);
    TagMemory memory(1, 1);
    memory.lendTo(drive);
    told.clear();
    memory.forgetDrive();
  }
  EXPECT_TRUE(told.empty());
}

TEST(TagMemoryTest, AFaultyDrivePassesItOn) {
  Told told;
  FaultLedger ledger(0);
  FaultyDrive drive(std::make_unique<ToldDrive>(told), {}, 1, ledger);
  uint8_t data = 0;
  drive.useMemory(&data, 1);
  EXPECT_EQ(told, (Told{{&data, 1}}));
}

}  // namespace
}  // namespace corvane::host
