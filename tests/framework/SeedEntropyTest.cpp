#include "vdl/SeedEntropy.h"

#include <gtest/gtest.h>

#include <array>
#include <atomic>
#include <limits>
#include <set>
#include <thread>
#include <vector>

#include "host/framework/DriveThreadHost.h"

namespace corvane::host {
namespace {

uint32_t takeSeedEntropy() { return std::atomic_ref<uint32_t>(vdl::seed_entropy).fetch_add(1); }

TEST(SeedEntropy, IsAlignedForAtomicAccess) {
  const auto address = reinterpret_cast<uintptr_t>(&vdl::seed_entropy);
  EXPECT_EQ(address % std::atomic_ref<uint32_t>::required_alignment, 0U);
  EXPECT_TRUE(std::atomic_ref<uint32_t>(vdl::seed_entropy).is_lock_free());
}

TEST(SeedEntropy, DrivesThatStartTogetherTakeDifferentValues) {
  constexpr uint32_t drives = 4;
  constexpr uint32_t seedsEach = 500;
  const uint32_t before = std::atomic_ref<uint32_t>(vdl::seed_entropy).load();
  std::array<std::vector<uint32_t>, drives> taken;
  std::vector<std::thread> threads;
  threads.reserve(8);
  threads.reserve(drives);
  for (std::vector<uint32_t>& values : taken) {
    threads.emplace_back([&values] {
      for (uint32_t i = 0; i < seedsEach; ++i) {
        values.push_back(takeSeedEntropy());
      }
    });
  }
  for (std::thread& thread : threads) {
    thread.join();
  }
  std::set<uint32_t> distinct;
  for (const std::vector<uint32_t>& values : taken) {
    distinct.insert(values.begin(), values.end());
  }
  EXPECT_EQ(distinct.size(), drives * seedsEach);
  EXPECT_EQ(vdl::seed_entropy, before + drives * seedsEach);
}

TEST(SeedEntropy, WrapsAround) {
  std::atomic_ref<uint32_t>(vdl::seed_entropy).store(std::numeric_limits<uint32_t>::max());
  EXPECT_EQ(takeSeedEntropy(), std::numeric_limits<uint32_t>::max());
  EXPECT_EQ(takeSeedEntropy(), 0U);
}

TEST(SeedEntropy, OnlyADerivationOfASeedMovesIt) {
  const uint32_t before = vdl::seed_entropy;
  DriveThreadHost first(DriveThreadHost::Settings{});
  DriveThreadHost second(DriveThreadHost::Settings{});
  int err = 0;
  ASSERT_NE(first.thread().mapU32("Seed", 3, &err, 1), nullptr);
  EXPECT_EQ(vdl::seed_entropy, before);
}

}  // namespace
}  // namespace corvane::host
