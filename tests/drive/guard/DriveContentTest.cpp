#include "host/drive/guard/DriveContent.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstring>
#include <filesystem>
#include <vector>

#include "host/drive/DriveError.h"
#include "host/drive/DriveFactory.h"
#include "host/drive/SenseData.h"
#include "host/drive/guard/Guard.h"
#include "tests/support/ShellCommand.h"
#include "tests/support/TempFolder.h"

namespace corvane::host {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

constexpr uint64_t mebi = 1 << 20;

/// A number as it stands on a medium.
template <typename T>
std::string little(T value) {
  std::string bytes;
  for (size_t i = 0; i < sizeof(T); ++i) {
    bytes += static_cast<char>(static_cast<uint64_t>(value) >> (8 * i));
  }
  return bytes;
}

template <typename T>
std::string big(T value) {
  const std::string bytes = little(value);
  return {bytes.rbegin(), bytes.rend()};
}

const std::string uuidBytes = "\x01\x23\x45\x67\x89\xab\xcd\xef\x01\x23\x45\x67\x89\xab\xcd\xef";
const std::string uuidText = "01234567-89ab-cdef-0123-456789abcdef";

uint32_t crc32(const std::string& bytes) {
  uint32_t crc = ~0U;
  for (const char byte : bytes) {
    crc ^= static_cast<uint8_t>(byte);
    for (int bit = 0; bit < 8; ++bit) {
      crc = crc >> 1 ^ ((crc & 1) != 0 ? 0xEDB88320U : 0U);
    }
  }
  return ~crc;
}

/// A drive on a sparse file into which marks are written.
class DriveContentTest : public ::testing::Test {
 protected:
  void SetUp() override { resize(32 * mebi); }

  void resize(uint64_t bytes) {
    bytes_ = bytes;
    tests::writeFile(path(), "");
    std::filesystem::resize_file(path(), bytes);
  }

  std::string path() const { return folder / "drive.img"; }

  void put(uint64_t place, const std::string& bytes) const {
    const int file = open(path().c_str(), O_WRONLY | O_CLOEXEC);
    ASSERT_EQ(pwrite(file, bytes.data(), bytes.size(), static_cast<off_t>(place)), static_cast<ssize_t>(bytes.size()));
    close(file);
  }

  std::unique_ptr<Drive> drive(const std::string& keys = "") const { return openDrive("file:" + path() + keys, 4); }

  std::vector<std::string> content(const std::string& keys = "") const { return findContent(*drive(keys)); }

  /// A GPT header for `block`-byte blocks, which says that it stands at `lba`.
  std::string gptHeader(uint64_t block, uint64_t lba, uint64_t entriesLba) const {
    const uint64_t last = bytes_ / block - 1;
    const uint64_t entryBlocks = 128 * 128 / block;
    std::string header = "EFI PART" + little(0x00010000U) + little(92U) + little(0U) + little(0U) + little(lba) +
                         little(lba == 1 ? last : uint64_t{1}) + little(2 + entryBlocks) +
                         little(last - entryBlocks - 1) + uuidBytes + little(entriesLba) + little(128U) + little(128U) +
                         little(crc32(std::string(128 * 128, '\0')));
    return header.replace(16, 4, little(crc32(header)));
  }

  void putGpt(uint64_t block) const {
    put(block, gptHeader(block, 1, 2));
    putBackupGpt(block);
    put(446, std::string("\0\0\2\0\xee\xff\xff\xff", 8) + little(1U) + little(0xFFFFFFFFU));
    put(510, "\x55\xaa");
  }

  void putBackupGpt(uint64_t block) const {
    const uint64_t last = bytes_ / block - 1;
    put(last * block, gptHeader(block, last, last - 128 * 128 / block));
  }

  /// A version 1 superblock of a Linux RAID array.
  void putRaid(uint64_t place) const {
    put(place, little(0xa92b4efcU) + little(1U));
    put(place + 16, uuidBytes + "host:data");
    put(place + 144, little(place / 512));
  }

  tests::TempFolder folder;
  uint64_t bytes_ = 0;
};

TEST_F(DriveContentTest, isNothingOnADriveOfZeros) { EXPECT_THAT(content(), IsEmpty()); }

TEST_F(DriveContentTest, isFoundOnTheSmallestDrives) {
  for (const uint64_t bytes : {uint64_t{512}, uint64_t{1024}, uint64_t{1536}}) {
    resize(bytes);
    EXPECT_THAT(content(), IsEmpty());
  }
  put(510, "\x55\xaa");
  put(446, std::string("\x80\0\2\0\x83\0\0\0", 8) + little(1U) + little(100U));
  EXPECT_THAT(content(), ElementsAre("a MBR partition table"));
}

TEST_F(DriveContentTest, isAnExt4AsItsToolMakesIt) {
  const tests::ShellEnd made = tests::runShell("mke2fs -q -t ext4 -L data -U " + uuidText + " " + path());
  ASSERT_EQ(made.status, 0) << made.out;
  EXPECT_THAT(content(), ElementsAre("ext4 'data' (UUID " + uuidText + ")"));
}

TEST_F(DriveContentTest, isAnXfs) {
  std::string block = "XFSB" + big(4096U) + big(uint64_t{8192}) + std::string(16, '\0') + uuidBytes;
  block += big(uint64_t{4100}) + big(uint64_t{128}) + big(uint64_t{129}) + big(uint64_t{130});  // log, root, bitmaps
  block += big(1U) + big(8192U) + big(1U) + big(0U) + big(1200U);  // extent, group, groups, bitmap, log
  block += big(uint16_t{0xB4A4}) + big(uint16_t{512}) + big(uint16_t{256}) + big(uint16_t{16});
  block += std::string("data\0\0\0\0\0\0\0\0", 12) + std::string("\x0c\x09\x08\x04\x0d\0\0\x19", 8);
  put(0, block);
  EXPECT_THAT(content(), ElementsAre("xfs 'data' (UUID " + uuidText + ")"));
}

TEST_F(DriveContentTest, isAGptWithBlocksOfEitherSize) {
  putGpt(512);
  EXPECT_THAT(content(), ElementsAre("a GPT partition table"));
  resize(32 * mebi);
  putGpt(4096);
  EXPECT_THAT(content(",block=4096"), ElementsAre("a GPT partition table"));
}

TEST_F(DriveContentTest, isAGptOfWhichOnlyTheBackupIsLeft) {
  putBackupGpt(512);
  EXPECT_THAT(content(), ElementsAre("the backup of a GPT partition table"));
}

TEST_F(DriveContentTest, isAnMbr) {
  put(446, std::string("\0\0\2\0\x83\0\0\0", 8) + little(2048U) + little(1000U));
  put(510, "\x55\xaa");
  EXPECT_THAT(content(), ElementsAre("a MBR partition table"));
}

TEST_F(DriveContentTest, isARaidMemberMarkedAtTheBeginning) {
  putRaid(4096);
  EXPECT_THAT(content(), ElementsAre("a member of a Linux RAID array 'host:data' (UUID " + uuidText + ")"));
}

TEST_F(DriveContentTest, isARaidMemberMarkedAtTheEnd) {
  putRaid(32 * mebi - 16 * 512);
  EXPECT_THAT(content(), ElementsAre("a member of a Linux RAID array 'host:data' (UUID " + uuidText + ")"));
}

TEST_F(DriveContentTest, isAMemberOfAnOldRaidArray) {
  const uint64_t place = 32 * mebi - 65536;
  put(place, little(0xa92b4efcU) + little(0U) + little(90U) + little(0U) + little(0U) + little(0x67452301U));
  put(place + 52, uuidBytes.substr(4));
  EXPECT_THAT(content(), ElementsAre("a member of a Linux RAID array (UUID 67452301-efcd-ab89-6745-2301efcdab89)"));
}

TEST_F(DriveContentTest, isAnLvmVolume) {
  put(512,
      "LABELONE" + little(uint64_t{1}) + little(0U) + little(32U) + "LVM2 001" + "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdef");
  EXPECT_THAT(content(), ElementsAre("an LVM physical volume (UUID ABCDEF-GHIJ-KLMN-OPQR-STUV-WXYZ-abcdef)"));
}

TEST_F(DriveContentTest, isALuksVolume) {
  put(0, "LUKS\xba\xbe" + big(uint16_t{1}));
  put(168, uuidText);
  EXPECT_THAT(content(), ElementsAre("a LUKS encrypted volume (UUID " + uuidText + ")"));
}

TEST_F(DriveContentTest, isALuksVolumeOfWhichOnlyTheSecondHeaderIsLeft) {
  constexpr uint64_t farthest = 4 * mebi;
  put(farthest, "SKUL\xba\xbe" + big(uint16_t{2}) + big(uint64_t{farthest}));
  put(farthest + 168, uuidText);
  put(farthest + 256, big(uint64_t{farthest}));
  EXPECT_THAT(content(), ElementsAre("a LUKS encrypted volume (UUID " + uuidText + ")"));
}

TEST_F(DriveContentTest, isSwapSpace) {
  put(1024, little(1U) + little(1000U) + little(0U) + uuidBytes + "spare");
  put(4086, "SWAPSPACE2");
  EXPECT_THAT(content(), ElementsAre("swap space 'spare' (UUID " + uuidText + ")"));
}

TEST_F(DriveContentTest, isABcacheDevice) {
  put(4096, std::string(8, '\0') + little(uint64_t{8}) + little(uint64_t{0}) +
                "\xc6\x85\x73\xf6\x4e\x1a\x45\xca\x82\x65\xf5\x7f\x48\xba\x6d\x81" + uuidBytes);
  EXPECT_THAT(content(), ElementsAre("a bcache device (UUID " + uuidText + ")"));
}

TEST_F(DriveContentTest, isAnNtfsWhoseFileTableIsFarFromTheBeginning) {
  constexpr uint64_t cluster = 4096;
  constexpr uint64_t table = 786432;  // 3 GiB, where Windows puts it
  resize(4096 * mebi);
  put(0, std::string("\xeb\x52\x90NTFS    ") + little(uint16_t{512}) + "\x08");
  put(21, "\xf8");
  put(40, little(uint64_t{bytes_ / 512 - 1}) + little(table) + little(uint64_t{2}) + "\xf6");
  put(72, little(uint64_t{0x0123456789ABCDEF}));
  put(510, "\x55\xaa");
  for (uint64_t record = 0; record < 4; ++record) {
    put(table * cluster + record * 1024, "FILE");
  }
  EXPECT_THAT(content(), ElementsAre("ntfs (UUID 0123456789ABCDEF)"));
}

TEST_F(DriveContentTest, isNothingWhereABootSectorOfNtfsSaysRubbish) {
  for (int cluster = 0; cluster < 256; ++cluster) {
    put(0, std::string("\xeb\x52\x90NTFS    ") + little(uint16_t{0xFFFF}) + static_cast<char>(cluster));
    put(48, std::string(16, '\x01'));
    EXPECT_THAT(content(), IsEmpty());
  }
}

TEST_F(DriveContentTest, isEveryMarkThatIsThere) {
  putGpt(512);
  putRaid(32 * mebi - 16 * 512);
  put(512 * 1024, std::string(4096, 'x'));
  EXPECT_THAT(content(), ElementsAre("a member of a Linux RAID array 'host:data' (UUID " + uuidText + ")",
                                     "a GPT partition table"));
}

TEST_F(DriveContentTest, isReadWithoutItsProtectionBytes) {
  constexpr uint64_t blocks = 65536;
  resize(blocks * 520);
  // Sectors 2 to 7 of the first 4096 bytes, each followed by its protection bytes.
  put(2 * 520, little(1U) + little(1000U) + little(0U) + uuidBytes);
  put(7 * 520 + 502, "SWAPSPACE2");
  EXPECT_THAT(content(",pi=8"), ElementsAre("swap space (UUID " + uuidText + ")"));
}

TEST_F(DriveContentTest, isRefusedByNameUnlessItMayGo) {
  put(0, "LUKS\xba\xbe" + big(uint16_t{1}));
  put(168, uuidText);
  const std::unique_ptr<Drive> some = drive();
  try {
    refuseContent(*some, "/dev/sdx", Overwriting::ofEmptyDrives);
    ADD_FAILURE() << "accepted";
  } catch (const DriveError& error) {
    EXPECT_EQ(error.what(), "drive '/dev/sdx' holds a LUKS encrypted volume (UUID " + uuidText +
                                "); name another drive, or give --overwrite to destroy what it holds");
  }
  for (const Overwriting allowed : {Overwriting::ofAnything, Overwriting::nothing}) {
    EXPECT_THAT(refuseContent(*some, "/dev/sdx", allowed),
                ElementsAre("a LUKS encrypted volume (UUID " + uuidText + ")"));
  }
}

TEST_F(DriveContentTest, isNotChangedByLookingAtIt) {
  putGpt(512);
  const std::string before = tests::readFile(path());
  content();
  EXPECT_EQ(tests::readFile(path()), before);
}

/// Reads with errors, or never ends one.
class BadDrive : public Drive {
 public:
  BadDrive(Sense sense, bool hostManaged) : sense_(sense) {
    geometry_.blocks = 65536;
    capabilities_.hostManaged = hostManaged;
  }

  const DriveGeometry& geometry() const override { return geometry_; }
  const DriveCapabilities& capabilities() const override { return capabilities_; }
  void setBlocks(uint64_t blocks) { geometry_.blocks = blocks; }
  void setReset(bool offered) { capabilities_.deviceReset = offered; }
  std::string description() const override { return "bad"; }
  uint32_t maxOutstanding() const override { return 1; }
  void submit(const DriveCommand& command) override {
    EXPECT_EQ(command.kind, CommandKind::read);
    command_ = command;
    ++commands;
  }
  bool poll(DriveCompletion& out, bool wait) override {
    if (silent) {
      waitedFor |= wait;
      silent = !wait;
      return wait;
    }
    if (waitedFor) {
      return false;
    }
    out = {};
    out.id = command_.id;
    std::memset(command_.data, 0, command_.dataBytes);
    const uint64_t end = command_.endLba();
    if (command_.lba < badEnd && end > badLba) {
      setSense(out, sense_);
    } else if (busyTimes > 0) {
      --busyTimes;
      out.status = scsi_status::busy;
    } else {
      out.bytesTransferred = command_.dataBytes;
    }
    return true;
  }
  void reset() override {
    if (!capabilities_.deviceReset) {
      throw std::logic_error("no reset is offered");
    }
    ++resets;
  }
  void powerCycle() override {}

  bool silent = false;     ///< answers nothing until somebody waits for it
  bool waitedFor = false;  ///< and then once
  uint32_t resets = 0;
  uint64_t badLba = 0;
  uint64_t badEnd = 0;
  uint32_t busyTimes = 0;
  uint32_t commands = 0;

 private:
  DriveGeometry geometry_;
  DriveCapabilities capabilities_;
  Sense sense_;
  DriveCommand command_;
};

TEST_F(DriveContentTest, isUnknownWhereTheDriveDoesNotRead) {
  BadDrive bad(sense::unrecoveredRead, false);
  bad.badLba = 600;
  bad.badEnd = 601;
  EXPECT_THAT(findContent(bad), ElementsAre("what cannot be read (LBAs 512 to 1023)"));
}

std::string complaintOf(Drive& drive) {
  try {
    findContent(drive, std::chrono::milliseconds(1));
    return "accepted";
  } catch (const DriveError& error) {
    return error.what();
  }
}

TEST_F(DriveContentTest, isUnknownOfADriveThatDoesNotAnswer) {
  BadDrive silent(sense::unrecoveredRead, false);
  silent.silent = true;
  silent.setReset(true);
  EXPECT_THAT(complaintOf(silent), ::testing::HasSubstr("does not answer a read within"));
  EXPECT_EQ(silent.resets, 1U);
  EXPECT_FALSE(silent.waitedFor);
}

TEST_F(DriveContentTest, isUnknownAlsoWhereTheDriveCannotBeReset) {
  BadDrive silent(sense::unrecoveredRead, false);
  silent.silent = true;
  EXPECT_THAT(complaintOf(silent), ::testing::HasSubstr("does not answer a read within"));
  EXPECT_TRUE(silent.waitedFor);
}

TEST_F(DriveContentTest, isNotLookedForWhereNoFileCanBeSoLong) {
  // One block more than 2^64 bytes, and the most blocks that there can be.
  for (const uint64_t blocks : {(uint64_t{1} << 55) + 1, ~uint64_t{0}, uint64_t{1} << 54}) {
    BadDrive endless(sense::unrecoveredRead, false);
    endless.setBlocks(blocks);
    EXPECT_THAT(complaintOf(endless), ::testing::HasSubstr("more than can be looked at"));
    EXPECT_EQ(endless.commands, 0U);
  }
  BadDrive longest(sense::unrecoveredRead, false);
  longest.setBlocks((uint64_t{1} << 54) - 1);
  EXPECT_THAT(complaintOf(longest), "accepted");
}

TEST_F(DriveContentTest, isLookedAtAgainWhileTheDriveIsBusy) {
  BadDrive busy(sense::unrecoveredRead, false);
  busy.busyTimes = 2;
  EXPECT_THAT(findContent(busy), IsEmpty());
}

TEST_F(DriveContentTest, isNothingInZonesThatAreNotWritten) {
  BadDrive zoned(sense::lbaOutOfRange, true);
  zoned.badLba = 1000;
  zoned.badEnd = 65536;
  EXPECT_THAT(findContent(zoned), IsEmpty());
  BadDrive plain(sense::lbaOutOfRange, false);
  plain.badLba = 1000;
  plain.badEnd = 1001;
  EXPECT_THAT(findContent(plain), ElementsAre("what cannot be read (LBAs 512 to 1023)"));
}

}  // namespace
}  // namespace corvane::host
