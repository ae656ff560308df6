#include "BlockHash.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>
#include <random>
#include <sstream>
#include <string>
#include <vector>

#include "support_model/GuardedMemory.h"

namespace vdl {
namespace {

struct Implementation {
  std::string name;
  block_hash::Function* function;
};

/// Those that this processor can run.
std::vector<Implementation> implementations() {
  std::vector<Implementation> all = {{"the fastest", blockHashes}, {"portable", block_hash::hashesPortable}};
#if defined(__x86_64__)
  if (block_hash::hasAvx2()) {
    all.push_back({"AVX2", block_hash::hashesAvx2});
  }
  if (block_hash::hasAvx512()) {
    all.push_back({"AVX-512", block_hash::hashesAvx512});
  }
#endif
  return all;
}

std::vector<uint8_t> randomBytes(std::size_t count) {
  std::mt19937 random(7);
  std::vector<uint8_t> bytes(count);
  for (uint8_t& byte : bytes) {
    byte = static_cast<uint8_t>(random());
  }
  return bytes;
}

/// Hashes blocks at once and one by one; what lies behind the last hash must stay.
void expectSame(const Implementation& way, const uint8_t* first, uint64_t stride, uint64_t bytes, uint32_t count) {
  constexpr uint64_t untouched = 0xDEADBEEF;
  std::vector<uint64_t> hashes(count + 1, untouched);
  way.function(first, stride, bytes, count, hashes.data());
  for (uint32_t i = 0; i < count; ++i) {
    const uint8_t* block = first + i * stride;
    ASSERT_EQ(hashes[i], blockHash(block, block + bytes))
        << way.name << ": block " << i << " of " << count << ", " << bytes << " bytes, stride " << stride;
  }
  ASSERT_EQ(hashes[count], untouched) << way.name << ": " << count << " blocks";
}

TEST(BlockHashes, AnyNumberOfBlocksHashesLikeEachOfThem) {
  const std::vector<uint8_t> data = randomBytes(68 * 520);
  for (const Implementation& way : implementations()) {
    for (uint32_t count = 0; count <= 68; ++count) {
      for (const uint64_t bytes : {512U, 520U, 33U}) {
        expectSame(way, data.data(), bytes, bytes, count);
      }
    }
  }
}

TEST(BlockHashes, AnyLengthHashesLikeASingleBlock) {
  // Exactly as much memory as the blocks need: a sanitizer sees a byte too many.
  for (const Implementation& way : implementations()) {
    for (uint32_t bytes = 0; bytes <= 4104; bytes += bytes < 80 ? 1 : 67) {
      for (const uint32_t count : {1U, 2U, 5U, 8U, 17U, 20U}) {
        const std::vector<uint8_t> data = randomBytes(std::size_t{bytes} * count + 1);
        expectSame(way, data.data() + 1, bytes, bytes, count);
      }
    }
    const std::vector<uint8_t> longest = randomBytes(4104 * 20);
    expectSame(way, longest.data(), 4104, 4104, 20);
  }
}

TEST(BlockHashes, NothingIsReadBehindTheLastBlock) {
  for (const Implementation& way : implementations()) {
    for (uint32_t count = 1; count <= 40; ++count) {
      for (const uint64_t bytes : {512U, 520U, 33U}) {
        const modeltest::GuardedMemory memory(count * bytes);
        const std::vector<uint8_t> random = randomBytes(count * bytes);
        std::copy(random.begin(), random.end(), memory.data());
        expectSame(way, memory.data(), bytes, bytes, count);
      }
    }
  }
}

#if defined(__x86_64__)
TEST(BlockHashes, TheWidestRegistersAreTaken) {
  EXPECT_EQ(block_hash::fastestWith(true, true), block_hash::hashesAvx512);
  EXPECT_EQ(block_hash::fastestWith(true, false), block_hash::hashesAvx512);
  EXPECT_EQ(block_hash::fastestWith(false, true), block_hash::hashesAvx2);
  EXPECT_EQ(block_hash::fastestWith(false, false), block_hash::hashesPortable);
}

TEST(BlockHashes, KnowWhatTheProcessorHas) {
  std::ifstream file("/proc/cpuinfo");
  std::string line;
  while (std::getline(file, line) && line.rfind("flags", 0) != 0) {
  }
  if (!file) {
    GTEST_SKIP() << "/proc/cpuinfo names no flags";
  }
  std::istringstream words(line);
  bool avx2 = false;
  bool avx512 = false;
  for (std::string word; words >> word;) {
    avx2 = avx2 || word == "avx2";
    avx512 = avx512 || word == "avx512f";
  }
  EXPECT_EQ(block_hash::hasAvx2(), avx2);
  EXPECT_EQ(block_hash::hasAvx512(), avx512);
}
#endif

TEST(BlockHashes, BytesBetweenTheBlocksDoNotCount) {
  const std::vector<uint8_t> data = randomBytes(3 + 21 * 528);
  for (const Implementation& way : implementations()) {
    for (uint32_t unaligned = 0; unaligned < 4; ++unaligned) {
      for (uint32_t count = 0; count <= 20; ++count) {
        expectSame(way, data.data() + unaligned, 520, 512, count);
        expectSame(way, data.data() + unaligned, 528, 515, count);
      }
    }
  }
}

}  // namespace
}  // namespace vdl
