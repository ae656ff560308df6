#include "host/drive/block/AtomicUnits.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

namespace corvane::host {
namespace {

TEST(AtomicUnits, AreCountedInBlocks) {
  const AtomicSegments segments = AtomicUnits{.leastBytes = 4096, .mostBytes = 65536}.segments(512);
  EXPECT_TRUE(segments.limited());
  EXPECT_EQ(segments.leastBlocks, 8U);
  EXPECT_EQ(segments.mostBlocks, 128U);
}

TEST(AtomicUnits, OfOneBlockAreOneBlock) {
  const AtomicSegments segments = AtomicUnits{.leastBytes = 4096, .mostBytes = 4096}.segments(4096);
  EXPECT_TRUE(segments.limited());
  EXPECT_EQ(segments.leastBlocks, 1U);
  EXPECT_EQ(segments.mostBlocks, 1U);
}

TEST(AtomicUnits, BelowABlockAreNone) {
  EXPECT_FALSE(AtomicUnits{}.segments(512).limited());
  EXPECT_FALSE((AtomicUnits{.leastBytes = 512, .mostBytes = 2048}.segments(4096).limited()));
}

TEST(AtomicUnits, AreNoneWhereTheKernelDoesNotAnswer) {
  EXPECT_EQ(atomicUnitsOf(-1).mostBytes, 0U);
  const int fd = open("/dev/null", O_RDONLY | O_CLOEXEC);
  ASSERT_GE(fd, 0);
  EXPECT_EQ(atomicUnitsOf(fd).mostBytes, 0U);
  close(fd);
}

}  // namespace
}  // namespace corvane::host
