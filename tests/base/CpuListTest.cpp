#include "host/base/CpuList.h"

#include <gtest/gtest.h>
#include <sched.h>

#include <thread>

namespace corvane::host {
namespace {

using Cpus = std::vector<uint32_t>;

TEST(CpuListTest, readsSingleNumbersAndRangesInTheirOrder) {
  EXPECT_EQ(parseCpuList("0"), Cpus{0});
  EXPECT_EQ(parseCpuList("0,2-5"), (Cpus{0, 2, 3, 4, 5}));
  EXPECT_EQ(parseCpuList("7,3,4-4"), (Cpus{7, 3, 4}));
  EXPECT_EQ(parseCpuList("8191"), Cpus{8191});
}

TEST(CpuListTest, takesNothingElse) {
  for (const char* text : {"", ",", "1,", ",1", "a", "1-", "-1", "5-2", "1,1", "0-3,2", "8192", "1.5", " 1", "0x1"}) {
    EXPECT_EQ(parseCpuList(text), std::nullopt) << text;
  }
}

TEST(CpuListTest, writesWhatItReads) {
  for (const char* text : {"0", "0,2-5", "7,3-4", "1-2,0"}) {
    EXPECT_EQ(cpuListText(*parseCpuList(text)), text);
  }
}

TEST(CpuListTest, pinsOneThreadAndNoOther) {
  const Cpus before = allowedCpus();
  ASSERT_FALSE(before.empty());
  std::thread([cpu = before.back()] {
    ASSERT_TRUE(pinThisThread(cpu));
    EXPECT_EQ(allowedCpus(), Cpus{cpu});
    EXPECT_EQ(sched_getcpu(), static_cast<int>(cpu));
  }).join();
  EXPECT_EQ(allowedCpus(), before);
}

}  // namespace
}  // namespace corvane::host
