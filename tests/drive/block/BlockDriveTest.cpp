#include "host/drive/block/BlockDrive.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <optional>

#include "host/drive/DriveError.h"
#include "host/drive/DriveFactory.h"
#include "tests/drive/AddressComplaint.h"
#include "tests/drive/CommandMaker.h"
#include "tests/support/LoopDevice.h"
#include "tests/support/TempFolder.h"

namespace corvane::host {
namespace {

using testing::AllOf;
using testing::AnyOf;
using testing::HasSubstr;

constexpr uint64_t mebibyte = uint64_t{1} << 20;
constexpr uint32_t depth = 4;

/// What opening the address complains about; "opened" when it does not.
std::string refusal(const std::string& address, Overwriting overwriting = Overwriting::ofEmptyDrives) {
  try {
    openDrive(address, depth, 1, overwriting);
  } catch (const DriveError& error) {
    return error.what();
  }
  return "opened";
}

TEST(BlockDriveAddress, NamesADeviceWithKeysThatAreKnown) {
  EXPECT_THAT(complaint("/dev/null,trimm=off"), HasSubstr("'trimm' is not a key of 'block:' addresses"));
  EXPECT_THAT(complaint("block:/dev/null,trim=maybe"),
              HasSubstr("trim=maybe is not known; it takes auto, punch, zero"));
  EXPECT_THAT(complaint("/dev/null,engine=steam"), HasSubstr("engine=steam is not known"));
  EXPECT_THAT(complaint("/dev/null,block=4096"), HasSubstr("'block' is not a key"));
  EXPECT_THAT(complaint("block:"), AllOf(HasSubstr("names no device"), HasSubstr("/dev/NAME")));
}

TEST(BlockDriveAddress, NamesABlockDevice) {
  const tests::TempFolder folder;
  tests::writeFile(folder / "x.img", "content");
  ASSERT_EQ(mkfifo((folder / "pipe").c_str(), 0600), 0);
  EXPECT_THAT(refusal(folder / "none"), AllOf(HasSubstr("none' does not exist"), HasSubstr("lsblk")));
  EXPECT_THAT(refusal(folder / "x.img"), HasSubstr("is a regular file; write 'file:" + (folder / "x.img")));
  EXPECT_THAT(refusal(folder.path()), AllOf(HasSubstr("is a folder"), HasSubstr("lsblk")));
  EXPECT_THAT(refusal("/dev/null"), AllOf(HasSubstr("is a character device"), HasSubstr("lsblk")));
  EXPECT_THAT(refusal(folder / "pipe"), HasSubstr("is not a block device"));
  EXPECT_THAT(refusal(folder / "x.img/y"), HasSubstr("cannot be examined"));
}

class BlockDriveTest : public testing::Test {
 protected:
  void SetUp() override {
    if (const std::string missing = tests::LoopDevice::missing(); !missing.empty()) {
      GTEST_SKIP() << missing;
    }
    loop.emplace(folder / "x.img", mebibyte, 512);
  }
  std::unique_ptr<Drive> open(const std::string& keys = {}) const { return openDrive(loop->path() + keys, depth); }
  Bytes onFile(uint64_t offset, uint64_t bytes) const {
    const std::string content = tests::readFile(loop->file());
    return {content.begin() + static_cast<int64_t>(offset), content.begin() + static_cast<int64_t>(offset + bytes)};
  }

  tests::TempFolder folder;
  std::optional<tests::LoopDevice> loop;
};

TEST_F(BlockDriveTest, HasTheGeometryThatTheKernelTells) {
  const auto drive = open();
  EXPECT_EQ(drive->geometry().blocks, 2048U);
  EXPECT_EQ(drive->geometry().blockSize, 512U);
  EXPECT_EQ(drive->geometry().protectionBytes, 0U);
  EXPECT_EQ(drive->geometry().zoneBlocks, 0U);
  const tests::LoopDevice large(folder / "large.img", mebibyte, 4096);
  const auto other = openDrive("block:" + large.path(), depth);
  EXPECT_EQ(other->geometry().blocks, 256U);
  EXPECT_EQ(other->geometry().blockSize, 4096U);
  EXPECT_EQ(other->geometry().physicalExponent, 0U);
}

TEST_F(BlockDriveTest, BlockNIsSectorNOfTheDevice) {
  Bytes data = randomBytes(1, 1024);
  {
    const auto drive = open();
    CommandMaker commands(*drive);
    EXPECT_EQ(commands.run(CommandKind::write, 3, 2, &data).status, scsi_status::good);
  }
  EXPECT_EQ(onFile(3 * 512, 1024), data);
}

TEST_F(BlockDriveTest, SaysWhatItIsAndHowItIsReached) {
  EXPECT_THAT(
      open()->description(),
      AllOf(HasSubstr("block device " + loop->path() + ", backed by " + loop->file() + ", 1 MiB, 512-byte blocks"),
            AnyOf(HasSubstr(", io_uring, O_DIRECT"), HasSubstr("(io_uring is refused: ")),
            HasSubstr("no atomic writes (")));
  EXPECT_THAT(open(",engine=threads")->description(), HasSubstr(", thread pool, O_DIRECT"));
  EXPECT_THAT(open(",engine=sync")->description(), HasSubstr(", synchronous calls, O_DIRECT"));
  EXPECT_THAT(open(",trim=discard")->description(), HasSubstr("trim by discard"));
}

TEST_F(BlockDriveTest, PromisesNoMoreThanTheKernelDoes) {
  const auto drive = open();
  EXPECT_FALSE(drive->capabilities().atomicWrite);
  EXPECT_FALSE(drive->capabilities().atomicSegments.limited());
  EXPECT_FALSE(drive->capabilities().powerToggle);
  EXPECT_TRUE(drive->capabilities().deviceReset);
  EXPECT_TRUE(drive->capabilities().trim);
  EXPECT_TRUE(drive->capabilities().volatileCache);
}

TEST_F(BlockDriveTest, WorksInCallsWithSynchronousCallsOnly) {
  EXPECT_TRUE(open(",engine=sync")->capabilities().worksInCalls);
  EXPECT_FALSE(open(",engine=threads")->capabilities().worksInCalls);
  EXPECT_FALSE(open()->capabilities().worksInCalls);
}

TEST_F(BlockDriveTest, ATrimThatIsSwitchedOffIsNotOfferedAndRefused) {
  const auto drive = open(",trim=off");
  EXPECT_FALSE(drive->capabilities().trim);
  EXPECT_EQ(senseNumber(CommandMaker(*drive).run(CommandKind::trim, 0, 8)), 0x052000U);
}

TEST_F(BlockDriveTest, OpeningItWritesNothing) {
  Bytes data = randomBytes(2, mebibyte);
  {
    const auto drive = open();
    CommandMaker(*drive).run(CommandKind::write, 0, 2048, &data);
  }
  for (const char* keys : {"", ",trim=punch", ",trim=zero", ",trim=discard", ",trim=discard,engine=threads"}) {
    open(keys);
  }
  EXPECT_EQ(onFile(0, mebibyte), data);
}

TEST_F(BlockDriveTest, ATrimFreesSpaceAndLeavesZeros) {
  for (const char* keys : {",trim=punch", ",trim=discard", ",trim=discard,engine=threads"}) {
    const auto drive = open(keys);
    CommandMaker commands(*drive);
    Bytes data = randomBytes(3, mebibyte);
    commands.run(CommandKind::write, 0, 2048, &data);
    commands.run(CommandKind::syncCache, 0, 0);
    struct stat before {};
    stat(loop->file().c_str(), &before);
    EXPECT_EQ(commands.run(CommandKind::trim, 0, 2048).status, scsi_status::good) << keys;
    struct stat after {};
    stat(loop->file().c_str(), &after);
    EXPECT_LT(after.st_blocks, before.st_blocks) << keys;
    EXPECT_EQ(commands.read(0, 2048), Bytes(mebibyte)) << keys;
  }
}

TEST_F(BlockDriveTest, CommandsBehindTheEndOfADeviceThatShrankSaySo) {
  const auto drive = open();
  CommandMaker commands(*drive);
  loop->shrink(mebibyte / 2);
  Bytes data = randomBytes(4, 16 * 512);
  const auto expectOutOfRange = [](const DriveCompletion& completion, uint64_t lba) {
    EXPECT_EQ(completion.status, scsi_status::checkCondition);
    EXPECT_EQ(senseNumber(completion), 0x052100U);
    EXPECT_EQ(senseInformation(completion), lba);
    EXPECT_EQ(completion.bytesTransferred, 0U);
  };
  expectOutOfRange(commands.run(CommandKind::read, 1500, 16, &data), 1500);
  expectOutOfRange(commands.run(CommandKind::write, 1500, 16, &data), 1500);
  expectOutOfRange(commands.run(CommandKind::verify, 1500, 16, &data), 1500);
  expectOutOfRange(commands.run(CommandKind::trim, 1500, 16), 1500);
  expectOutOfRange(commands.run(CommandKind::read, 1016, 16, &data), 1024);
  expectOutOfRange(commands.run(CommandKind::write, 1016, 16, &data), 1024);
  EXPECT_EQ(commands.run(CommandKind::write, 1008, 16, &data).status, scsi_status::good);
  EXPECT_EQ(commands.read(1008, 16), data);
}

TEST_F(BlockDriveTest, ADeviceThatIsGoneEndsTheTest) {
  const auto drive = open();
  CommandMaker commands(*drive);
  loop->shrink(0);
  Bytes data(512);
  EXPECT_THROW(commands.run(CommandKind::read, 0, 1, &data), DriveError);
  EXPECT_THROW(commands.run(CommandKind::write, 0, 1, &data), DriveError);
  // And the drive can still be left in order.
  drive->reset();
  DriveCompletion completion;
  EXPECT_FALSE(drive->poll(completion, true));
}

TEST_F(BlockDriveTest, ADeviceThatIsReadOnlyIsRefused) {
  const tests::LoopDevice readOnly(folder / "ro.img", mebibyte, 512, true);
  EXPECT_THAT(refusal(readOnly.path()), AllOf(HasSubstr("is read-only"), HasSubstr("name one that can be written")));
}

TEST_F(BlockDriveTest, ADeviceWithoutMediumIsRefused) {
  loop->shrink(0);
  EXPECT_THAT(refusal(loop->path()), AllOf(HasSubstr("holds no medium"), HasSubstr("insert one")));
}

TEST_F(BlockDriveTest, ADeviceInUseIsOpenedOnlyWhenItMayBeOverwritten) {
  const auto user = open();
  EXPECT_THAT(refusal(loop->path()),
              AllOf(HasSubstr("it is opened exclusively, and opened by block_drive"), HasSubstr("--overwrite")));
  const auto second = openDrive(loop->path(), depth, 1, Overwriting::ofAnything);
  EXPECT_THAT(second->description(), testing::EndsWith(", shared with others"));
  Bytes data = randomBytes(5, 512);
  EXPECT_EQ(CommandMaker(*second).run(CommandKind::write, 7, 1, &data).status, scsi_status::good);
  EXPECT_EQ(CommandMaker(*user).read(7, 1), data);
}

TEST_F(BlockDriveTest, ADeviceIsHadAloneAlsoWhenItMayBeOverwritten) {
  const auto user = openDrive(loop->path(), depth, 1, Overwriting::ofAnything);
  EXPECT_THAT(refusal(loop->path()), HasSubstr("it is opened exclusively, and opened by block_drive"));
  EXPECT_THAT(user->description(), testing::Not(HasSubstr("shared")));
}

TEST_F(BlockDriveTest, MayBeDroppedWithCommandsOutstanding) {
  Bytes data = randomBytes(6, 64 * 512);
  auto drive = open();
  CommandMaker commands(*drive);
  for (uint64_t i = 0; i < depth; ++i) {
    drive->submit(commands.make(CommandKind::write, 64 * i, 64, &data));
  }
  drive.reset();
  EXPECT_EQ(refusal(loop->path()), "opened");
}

}  // namespace
}  // namespace corvane::host
