#include "host/drive/nvme/NvmeCommand.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <vector>

namespace corvane::host {
namespace {

using testing::ElementsAre;
using testing::ElementsAreArray;

/// The submission queue entry's bytes 0 (operation code), 4 to 7 (namespace) and 40 to 63 (dwords 10 to 15).
std::vector<int> bytesOf(const NvmeCommand& command) {
  std::vector<int> bytes{command.opcode};
  const auto add = [&](uint32_t dword) {
    for (uint32_t i = 0; i < 4; ++i) {
      bytes.push_back(static_cast<int>(dword >> 8 * i & 0xFF));
    }
  };
  add(command.nsid);
  for (const uint32_t dword : command.dwords) {
    add(dword);
  }
  return bytes;
}

constexpr NvmeBlocks blocks{.nsid = 0x0A0B0C0D, .lba = 0x1122334455667788, .count = 0x1235};

TEST(NvmeCommand, AReadCountsItsBlocksFromZero) {
  EXPECT_THAT(bytesOf(nvmeRead(blocks)), ElementsAre(0x02, 0x0D, 0x0C, 0x0B, 0x0A, 0x88, 0x77, 0x66, 0x55, 0x44, 0x33,
                                                     0x22, 0x11, 0x34, 0x12, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0));
}

TEST(NvmeCommand, AWriteForcesUnitAccessWhenItIsToldSo) {
  EXPECT_THAT(
      bytesOf(nvmeWrite({.nsid = 1, .lba = 2, .count = 65536}, false)),
      ElementsAre(0x01, 1, 0, 0, 0, 2, 0, 0, 0, 0, 0, 0, 0, 0xFF, 0xFF, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0));
  EXPECT_THAT(bytesOf(nvmeWrite({.nsid = 1, .lba = 2, .count = 1}, true)),
              ElementsAre(0x01, 1, 0, 0, 0, 2, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0x40, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0));
}

TEST(NvmeCommand, ProtectionAndReferenceTagStandInDwords12And14) {
  const NvmeBlocks guarded{
      .nsid = 1, .lba = 3, .count = 2, .protection = nvme_protection::action, .initialReference = 0xA1B2C3D4};
  EXPECT_THAT(bytesOf(nvmeWrite(guarded, true)), ElementsAre(0x01, 1, 0, 0, 0, 3, 0, 0, 0, 0, 0, 0, 0, 1, 0, 0, 0x60, 0,
                                                             0, 0, 0, 0xD4, 0xC3, 0xB2, 0xA1, 0, 0, 0, 0));
  EXPECT_EQ(nvmeRead(guarded).dwords[2], 0x20000001U);
}

TEST(NvmeCommand, CompareAndWriteZeroesNameTheirBlocksLikewise) {
  EXPECT_THAT(bytesOf(nvmeCompare({.nsid = 1, .lba = 9, .count = 8})),
              ElementsAre(0x05, 1, 0, 0, 0, 9, 0, 0, 0, 0, 0, 0, 0, 7, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0));
  EXPECT_THAT(bytesOf(nvmeWriteZeroes({.nsid = 1, .lba = 9, .count = 8}, false)),
              ElementsAre(0x08, 1, 0, 0, 0, 9, 0, 0, 0, 0, 0, 0, 0, 7, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0));
  EXPECT_THAT(bytesOf(nvmeWriteZeroes({.nsid = 1, .lba = 9, .count = 8}, true)),
              ElementsAre(0x08, 1, 0, 0, 0, 9, 0, 0, 0, 0, 0, 0, 0, 7, 0, 0, 2, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0));
}

TEST(NvmeCommand, AFlushNamesNothingButTheNamespace) {
  std::vector<int> expected(29);
  expected[1] = 7;
  EXPECT_THAT(bytesOf(nvmeFlush(7)), ElementsAreArray(expected));
}

TEST(NvmeCommand, ADeallocationIsOneRangeOfDatasetManagement) {
  EXPECT_THAT(bytesOf(nvmeDeallocate(1)),
              ElementsAre(0x09, 1, 0, 0, 0, 0, 0, 0, 0, 4, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0));
  EXPECT_THAT(nvmeDatasetRange(0x1122334455667788, 0x99AABBCC),
              ElementsAre(0, 0, 0, 0, 0xCC, 0xBB, 0xAA, 0x99, 0x88, 0x77, 0x66, 0x55, 0x44, 0x33, 0x22, 0x11));
}

TEST(NvmeCommand, ZonesAreResetOneByOneAndReportedFromAnLba) {
  EXPECT_THAT(bytesOf(nvmeZoneReset(1, 0x0102030405060000)),
              ElementsAre(0x79, 1, 0, 0, 0, 0, 0, 6, 5, 4, 3, 2, 1, 0, 0, 0, 0, 4, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0));
  EXPECT_THAT(bytesOf(nvmeZoneReport(1, 0x1000, 4096)), ElementsAre(0x7A, 1, 0, 0, 0, 0, 0x10, 0, 0, 0, 0, 0, 0, 0xFF,
                                                                    3, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0));
}

TEST(NvmeCommand, IdentifyNamesItsStructureAndTheCommandSet) {
  EXPECT_THAT(bytesOf(nvmeIdentify(NvmeStructure::namespaceOfSet, 5, nvme_command_set::zoned)),
              ElementsAre(0x06, 5, 0, 0, 0, 5, 0, 0, 0, 0, 0, 0, 2, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0));
  EXPECT_EQ(nvmeIdentify(NvmeStructure::namespaceOfNvm, 1).dwords[0], 0U);
  EXPECT_EQ(nvmeIdentify(NvmeStructure::controller, 0).dwords[0], 1U);
  EXPECT_EQ(nvmeIdentify(NvmeStructure::descriptors, 1).dwords[0], 3U);
  EXPECT_EQ(nvmeIdentify(NvmeStructure::controllerOfSet, 0).dwords[0], 6U);
}

TEST(NvmeCommand, TheWriteCacheIsFeatureSix) {
  EXPECT_EQ(nvmeGetWriteCache().opcode, 0x0A);
  EXPECT_EQ(nvmeGetWriteCache().dwords[0], 6U);
}

}  // namespace
}  // namespace corvane::host
