#include "SectorBuckets.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "BlockStamp.h"
#include "LazyHasher.h"
#include "support_model/FakeClock.h"
#include "support_model/ModelFramework.h"
#include "vdl/SeedEntropy.h"

namespace vdl::agent {
namespace {

using Bytes = std::vector<uint8_t>;
using Rng = RandomNumberGenerator<unsigned long>;

Bytes slice(const Bytes& bytes, std::size_t from, std::size_t count) {
  const auto first = bytes.begin() + static_cast<std::ptrdiff_t>(from);
  return {first, first + static_cast<std::ptrdiff_t>(count)};
}

uint64_t hashOf(const Bytes& bytes) { return blockHash(bytes.data(), bytes.data() + bytes.size()); }

Rng seeded(uint64_t seed) {
  Rng rng;
  rng.init(seed, 0, ~0UL);
  return rng;
}

Bytes randomPool(Rng& rng, uint32_t bucketBytes, uint32_t buckets) {
  Bytes pool(uint64_t{bucketBytes} * buckets);
  fillRandomPool(pool.data(), pool.size(), bucketBytes, rng);
  return pool;
}

Bytes userPool(const std::string& user, uint64_t patternBytes, uint64_t poolBytes) {
  Bytes pool(poolBytes);
  const Bytes bytes(user.begin(), user.end());
  fillUserPool(pool.data(), pool.size(), patternBytes, bytes.data(), bytes.size());
  return pool;
}

TEST(RandomPool, KnownSeedGivesTheKnownPool) {
  Rng rng = seeded(1);
  const Bytes pool = randomPool(rng, 512, 16);
  EXPECT_EQ(slice(pool, 0, 24), (Bytes{0x00, 0x00, 0x00, 0x00, 0xEB, 0x80, 0x47, 0xFF, 0x8C, 0x2F, 0x67, 0xB8,
                                       0x48, 0x14, 0xBC, 0xEE, 0xFF, 0x7E, 0x07, 0x00, 0x89, 0xC3, 0xCC, 0x20}));
  EXPECT_EQ(slice(pool, 512, 20), (Bytes{0x00, 0x00, 0x01, 0x00, 0xFD, 0xD4, 0xF6, 0xC3, 0xCD, 0x81,
                                         0x30, 0x89, 0x06, 0xC7, 0x9B, 0x0B, 0x34, 0x72, 0xEE, 0xA9}));
  EXPECT_EQ(slice(pool, 15 * 512, 12),
            (Bytes{0x00, 0x00, 0x0F, 0x00, 0x4E, 0x1E, 0x10, 0x37, 0x67, 0xE8, 0xA0, 0xD5}));
  EXPECT_EQ(slice(pool, 16 * 512 - 4, 4), (Bytes{0xFF, 0xC7, 0x11, 0xDF}));
  EXPECT_EQ(hashOf(pool), 0xe1e383d8eae875d1U);
  EXPECT_EQ(hashOf(slice(pool, 0, 512)), 0x791e3bcd24ea6473U);
  EXPECT_EQ(rng(), 0xe1d040a3743d36d9U) << "the draw behind the pool's";
}

TEST(RandomPool, TakesOneDrawForEveryEightBytes) {
  Rng rng = seeded(1);
  randomPool(rng, 512, 16);
  Rng counted = seeded(1);
  for (int i = 0; i < 1024; ++i) {
    counted();
  }
  EXPECT_EQ(rng(), counted());
}

TEST(RandomPool, AnotherSeedsNextDraw) {
  Rng rng = seeded(12345);
  randomPool(rng, 512, 16);
  EXPECT_EQ(rng(), 0xd25fed0ad3fd0635U);
}

TEST(RandomPool, NextDrawsBehindALargerPool) {
  Rng rng = seeded(1);
  randomPool(rng, 512, 64);
  EXPECT_EQ(rng(), 0xd4edcb6bdd5ece25U);
  EXPECT_EQ(rng(), 0xdcf61504c81c2f0fU);
  EXPECT_EQ(rng(), 0x1b1368f46ea3978fU);
}

TEST(RandomPool, SectorsWithProtectionInformation) {
  Rng rng = seeded(1);
  const Bytes pool = randomPool(rng, 520, 16);
  EXPECT_EQ(slice(pool, 520, 12),
            (Bytes{0x00, 0x00, 0x01, 0x00, 0x06, 0xC7, 0x9B, 0x0B, 0x34, 0x72, 0xEE, 0xA9}));
  EXPECT_EQ(hashOf(pool), 0xf8e3a4d0c2eb34b0U);
  Rng counted = seeded(1);
  for (int i = 0; i < 1040; ++i) {
    counted();
  }
  EXPECT_EQ(rng(), counted());
}

TEST(RandomPool, TwoRunsOfASeedAgreeAndTwoSeedsDoNot) {
  Rng first = seeded(99);
  Rng second = seeded(99);
  Rng third = seeded(98);
  const Bytes pool = randomPool(first, 512, 16);
  EXPECT_EQ(pool, randomPool(second, 512, 16));
  EXPECT_NE(pool, randomPool(third, 512, 16));
}

TEST(RandomPool, AnOddEndTakesOneMoreDraw) {
  Rng rng = seeded(1);
  Bytes pool(12, 0xEE);
  fillRandomPool(pool.data(), 11, 11, rng);
  EXPECT_EQ(slice(pool, 4, 8), (Bytes{0xEB, 0x80, 0x47, 0xFF, 0x8C, 0x2F, 0x67, 0xEE}));
  EXPECT_EQ(rng(), 0x20ccc38900077effU);
}

TEST(BucketNumbers, AreBigEndianWithAZeroBehind) {
  constexpr uint32_t bucketBytes = 4;
  constexpr uint32_t last = 0x012345;
  Bytes pool((uint64_t{last} + 1) * bucketBytes, 0xEE);
  numberBuckets(pool.data(), pool.size(), bucketBytes);
  EXPECT_EQ(slice(pool, 0, 8), (Bytes{0, 0, 0, 0, 0, 0, 1, 0}));
  EXPECT_EQ(slice(pool, 0x102 * 4, 4), (Bytes{0x00, 0x01, 0x02, 0x00}));
  EXPECT_EQ(slice(pool, uint64_t{last} * 4, 4), (Bytes{0x01, 0x23, 0x45, 0x00}));
}

TEST(BucketNumbers, TouchFourBytesOfEachBucket) {
  Bytes pool(3 * 16, 0xEE);
  numberBuckets(pool.data(), pool.size(), 16);
  for (std::size_t bucket = 0; bucket < 3; ++bucket) {
    EXPECT_EQ(slice(pool, bucket * 16 + 4, 12), Bytes(12, 0xEE));
  }
}

TEST(UserPool, PatternRunsOnAcrossBucketsAndStartsAnewAtItsLength) {
  const Bytes pool = userPool("ABC", 512 * 8, 512 * 16);
  EXPECT_EQ(pool[0], 'A');
  EXPECT_EQ(pool[512], 'C');
  EXPECT_EQ(pool[4095], 'A');
  EXPECT_EQ(pool[8 * 512], 'A');
  EXPECT_EQ(pool[9 * 512], 'C');
  for (std::size_t i = 0; i < pool.size(); ++i) {
    ASSERT_EQ(pool[i], "ABC"[(i % 4096) % 3]) << i;
  }
}

TEST(UserPool, PatternOfOneSector) {
  const Bytes pool = userPool("ABC", 512, 512 * 4);
  EXPECT_EQ(pool[511], 'B');
  EXPECT_EQ(pool[512], 'A');
  EXPECT_EQ(pool[3 * 512 + 1], 'B');
}

TEST(UserPool, PatternLongerThanThePool) {
  const Bytes pool = userPool("ABC", 512 * 100, 512 * 4);
  for (std::size_t i = 0; i < pool.size(); ++i) {
    ASSERT_EQ(pool[i], "ABC"[i % 3]) << i;
  }
}

TEST(UserPool, PatternThatDoesNotDivideThePool) {
  const Bytes pool = userPool("ABCDE", 7, 20);
  EXPECT_EQ(std::string(pool.begin(), pool.end()), "ABCDEABABCDEABABCDEA");
}

TEST(UserPool, UserDataLongerThanThePattern) {
  const Bytes pool = userPool("ABCDEFGHIJ", 4, 10);
  EXPECT_EQ(std::string(pool.begin(), pool.end()), "ABCDABCDAB");
}

class Seed : public testing::Test {
 protected:
  void SetUp() override { modeltest::ostraScript = {}; }
  void TearDown() override { seed_entropy = 0; }
};

TEST_F(Seed, AnOptionIsTakenAsItIs) {
  seed_entropy = 5;
  EXPECT_EQ(deriveSeed(1), 1U);
  EXPECT_EQ(deriveSeed(0xFFFFFFFF), 0xFFFFFFFFU);
  EXPECT_EQ(seed_entropy, 5U);
  EXPECT_EQ(modeltest::ostraScript.deviceIndexCalls, 0);
}

TEST_F(Seed, TimeCounterAndDeviceAddUp) {
  const modeltest::FakeClock clock(1700000000, 123456);
  seed_entropy = 5;
  modeltest::ostraScript.deviceIndex = 2;
  EXPECT_EQ(deriveSeed(0), 3487918211U);
  EXPECT_EQ(seed_entropy, 6U);
  EXPECT_EQ(modeltest::ostraScript.deviceIndexCalls, 1);
}

TEST_F(Seed, TheCounterWraps) {
  const modeltest::FakeClock clock(1700000000, 999999);
  seed_entropy = 0xFFFFFFFF;
  EXPECT_EQ(deriveSeed(0), 3487919079U);
  EXPECT_EQ(seed_entropy, 0U);
}

TEST_F(Seed, DrivesThatStartInOneMillisecondDiffer) {
  const modeltest::FakeClock clock(1700000000, 0);
  const uint32_t first = deriveSeed(0);
  EXPECT_EQ(deriveSeed(0), first + 1);
  modeltest::ostraScript.deviceIndex = 10;
  EXPECT_EQ(deriveSeed(0), first + 12);
}

TEST_F(Seed, SubMillisecondTimeIsCutOff) {
  modeltest::FakeClock clock(1700000000, 123000);
  const uint32_t first = deriveSeed(0);
  clock.set(1700000000, 123999);
  EXPECT_EQ(deriveSeed(0), first + 1);
  clock.set(1700000000, 124000);
  EXPECT_EQ(deriveSeed(0), first + 3);
}

class ExpectedSector : public testing::Test {
 protected:
  ExpectedSector() {
    Rng rng = seeded(1);
    config.bucketCount = 16;
    pool = randomPool(rng, 512, 16);
    data.buckets = pool.data();
    data.zeroBlock = zero.data();
    data.embedBuffer = scratch.data();
  }

  Bytes expected(BlockNum block, const EmbedData& embed) {
    const uint8_t* found = expectedSector(step, block, embed);
    return found == nullptr ? Bytes{} : Bytes(found, found + 512);
  }

  modeltest::Drive drive;
  Corvane::DriveData data;
  Corvane::ConfigData config;
  Step step{drive.thread, data, config};
  Bytes pool;
  Bytes zero = Bytes(512, 0);
  Bytes scratch = Bytes(512, 0xEE);
};

TEST_F(ExpectedSector, WithoutAStampItIsTheBucketItself) {
  EXPECT_EQ(expected(3, {}), slice(pool, 3 * 512, 512));
  EXPECT_EQ(expectedSector(step, 3, {}), pool.data() + 3 * 512);
  EXPECT_EQ(scratch, Bytes(512, 0xEE));
}

TEST_F(ExpectedSector, WithAStampItIsTheStampedBucket) {
  const Bytes before = pool;
  Bytes reference = slice(pool, 3 * 512, 512);
  stampBlock(reference.data(), 0x1234, 0x100);
  EXPECT_EQ(expected(3, {true, 0x100, 0x1234}), reference);
  EXPECT_EQ(pool, before) << "the pool must not change";
}

TEST_F(ExpectedSector, TrimmedBlocksAreZero) {
  EXPECT_EQ(expected(0xFF0000, {}), Bytes(512, 0));
  EXPECT_EQ(expectedSector(step, 0xFF0000, {}), zero.data());
}

TEST_F(ExpectedSector, OtherNumbersHaveNoReference) {
  for (const BlockNum block : {0x80000U, 0x80001U, 0xFF0001U, 0xFFFFFFU, 0xFFFFFFFFU}) {
    EXPECT_EQ(expectedSector(step, block, {}), nullptr) << block;
    EXPECT_EQ(expectedSector(step, block, {true, 1, 2}), nullptr) << block;
  }
}

TEST_F(ExpectedSector, AStampFromBeforeDoesNotShowThrough) {
  expected(3, {true, ~uint64_t{0}, 1});
  Bytes reference = slice(pool, 4 * 512, 512);
  stampBlock(reference.data(), 2, 1);
  EXPECT_EQ(expected(4, {true, 1, 2}), reference);
}

TEST_F(ExpectedSector, ASectorIncludesProtectionBytesOnlyWhenEnabled) {
  drive.thread.protectionBytes = 8;
  EXPECT_EQ(sectorBytes(drive.thread), 512U);
  drive.thread.protectionEnabled = true;
  EXPECT_EQ(sectorBytes(drive.thread), 520U);
  EXPECT_EQ(expectedSector(step, 3, {}), pool.data() + 3 * 520);
}

}  // namespace
}  // namespace vdl::agent
