// Memory that runs out while a device's uses are looked for: none may be missed, or a mounted disk would be written to.

#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <exception>
#include <new>
#include <vector>

#include "host/drive/guard/DeviceUse.h"
#include "tests/drive/guard/FakeSystem.h"
#include "tests/support/EachAllocation.h"

namespace corvane::host {
namespace {

enum Status { everyUse, outOfMemory, usesMissed };

[[noreturn]] void sayOutOfMemory() {
  std::puts("out of memory");
  std::fflush(stdout);
  _exit(outOfMemory);
}

bool same(const std::vector<DeviceUse>& one, const std::vector<DeviceUse>& other) {
  return std::equal(one.begin(), one.end(), other.begin(), other.end(),
                    [](const DeviceUse& a, const DeviceUse& b) { return a.text == b.text && a.system == b.system; });
}

TEST(GuardMemory, NoUseIsMissedForWantOfIt) {
  testing::FakeSystem system;
  system.disk("sdb", "998:16");
  system.partition("sdb", "sdb1", "998:17");
  system.partition("sdb", "sdb2", "998:18");
  system.disk("dm-0", "998:32");
  system.holder("sdb2", "dm-0");
  system.mounts(
      "40 1 998:1 / /elsewhere rw,relatime shared:1 master:2 - ext4 /dev/other-device-of-a-long-name rw\n"
      "41 1 998:17 / /mnt/with/a/long/place/that/no/short/text/holds rw shared:1 - ext4 /dev/sdb1 rw\n"
      "42 1 998:32 / /boot/efi rw,relatime shared:1 master:2 - vfat /dev/mapper/system-of-a-long-name rw\n");
  system.file("/proc/swaps", "Filename Type Size Used Priority\n/dev/sdb2 partition 1048572 0 -2\n");
  const std::vector<DeviceUse> uses = findUse("/dev/sdb", system.view());
  ASSERT_GE(uses.size(), 3U);
  const auto look = [&] {
    std::set_terminate(sayOutOfMemory);  // as the standard library's paths do for want of it
    try {
      return same(findUse("/dev/sdb", system.view()), uses) ? everyUse : usesMissed;
    } catch (const std::bad_alloc&) {
      sayOutOfMemory();
    }
  };
  EXPECT_GT(tests::failEachAllocation(look, everyUse, outOfMemory), 100U);
}

}  // namespace
}  // namespace corvane::host
