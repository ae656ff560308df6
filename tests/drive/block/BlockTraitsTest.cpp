#include "host/drive/block/BlockTraits.h"

#include <gtest/gtest.h>

#include "tests/support/TempFolder.h"

namespace corvane::host {
namespace {

/// A folder that looks like a device's in sysfs.
class BlockTraitsTest : public testing::Test {
 protected:
  void tell(const std::string& name, const std::string& text) const {
    const std::filesystem::path path(folder / name);
    std::filesystem::create_directories(path.parent_path());
    tests::writeFile(path.string(), text);
  }
  BlockTraits traits() const { return readBlockTraits(folder / "sdx"); }

  tests::TempFolder folder;
};

TEST_F(BlockTraitsTest, TellWhoMadeTheDevice) {
  tell("sdx/device/vendor", "ACME    \n");
  tell("sdx/device/model", "Disk 9000       \n");
  tell("sdx/device/vpd_pg80", std::string("\0\x80\0\x08  S1N23 ", 12));
  EXPECT_EQ(traits().identity(), "ACME Disk 9000 serial S1N23");
}

TEST_F(BlockTraitsTest, TakeTheSerialNumberWhereverItStands) {
  tell("sdx/device/vendor", "0x1af4\n");  // a bus's number, which is no name
  tell("sdx/serial", "V-1\n");
  EXPECT_EQ(traits().identity(), "serial V-1");
  std::filesystem::remove(folder / "sdx/serial");
  tell("sdx/device/serial", "N-2\n");
  EXPECT_EQ(traits().identity(), "serial N-2");
}

TEST_F(BlockTraitsTest, NameWhatIsBehindADeviceOfTheKernelsOwn) {
  tell("sdx/loop/backing_file", "/tmp/x.img\n");
  EXPECT_EQ(traits().identity(), "backed by /tmp/x.img");
  std::filesystem::remove_all(folder / "sdx/loop");
  tell("sdx/dm/name", "vault\n");
  EXPECT_EQ(traits().identity(), "mapped as vault");
}

TEST_F(BlockTraitsTest, ReadTheQueuesLimits) {
  tell("sdx/ro", "1\n");
  tell("sdx/queue/write_cache", "write back\n");
  tell("sdx/queue/zoned", "host-managed\n");
  tell("sdx/queue/write_zeroes_max_bytes", "33553920\n");
  tell("sdx/queue/discard_max_bytes", "2147450880\n");
  tell("sdx/queue/dma_alignment", "3\n");
  tell("sdx/queue/atomic_write_unit_max_bytes", "0\n");
  const BlockTraits found = traits();
  EXPECT_TRUE(found.readOnly);
  EXPECT_TRUE(found.volatileCache);
  EXPECT_TRUE(found.hostManagedZones);
  EXPECT_TRUE(found.knowsAtomicWrites);
  EXPECT_EQ(found.mostWriteZerosBytes, 33553920U);
  EXPECT_EQ(found.mostDiscardBytes, 2147450880U);
  EXPECT_EQ(found.memoryAlignmentBytes, 4U);
  EXPECT_FALSE(found.partition);
}

TEST_F(BlockTraitsTest, OfACacheThatWritesThroughAreNotVolatile) {
  tell("sdx/queue/write_cache", "write through\n");
  tell("sdx/queue/zoned", "none\n");
  EXPECT_FALSE(traits().volatileCache);
  EXPECT_FALSE(traits().hostManagedZones);
}

TEST_F(BlockTraitsTest, OfAPartitionAreThoseOfTheWholeDevice) {
  tell("sdx/queue/write_cache", "write back\n");
  tell("sdx/device/model", "Disk 9000\n");
  tell("sdx/ro", "1\n");
  tell("sdx/sdx1/partition", "1\n");
  tell("sdx/sdx1/ro", "0\n");
  std::filesystem::create_directories(folder / "dev");
  std::filesystem::create_directory_symlink("../sdx/sdx1", folder / "dev/8:1");
  const BlockTraits found = readBlockTraits(folder / "dev/8:1");
  EXPECT_TRUE(found.partition);
  EXPECT_FALSE(found.readOnly);
  EXPECT_TRUE(found.volatileCache);
  EXPECT_EQ(found.model, "Disk 9000");
}

TEST_F(BlockTraitsTest, ThatTheKernelDoesNotTellAreNotClaimed) {
  const BlockTraits found = readBlockTraits(folder / "nothing");
  EXPECT_EQ(found.identity(), "");
  EXPECT_FALSE(found.partition || found.readOnly || found.volatileCache || found.hostManagedZones);
  EXPECT_FALSE(found.knowsAtomicWrites);
  EXPECT_EQ(found.mostWriteZerosBytes + found.mostDiscardBytes + found.memoryAlignmentBytes, 0U);
}

}  // namespace
}  // namespace corvane::host
