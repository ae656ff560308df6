#include "host/drive/file/FileDrive.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <fstream>

#include "host/drive/DriveError.h"
#include "host/drive/DriveFactory.h"
#include "tests/drive/CommandMaker.h"
#include "tests/support/TempFolder.h"

namespace corvane::host {
namespace {

using testing::AllOf;
using testing::AnyOf;
using testing::HasSubstr;

class FileDriveTest : public testing::Test {
 protected:
  std::string complaint(const std::string& address) const {
    try {
      openDrive(address, 4);
    } catch (const DriveError& error) {
      return error.what();
    }
    return "opened";
  }
  void makeFile(const std::string& name, uint64_t bytes) const {
    std::ofstream(folder / name).close();
    std::filesystem::resize_file(folder / name, bytes);
  }
  std::string at(const std::string& name) const { return "file:" + (folder / name); }

  tests::TempFolder folder;
};

TEST_F(FileDriveTest, IsCreatedWithTheSizeThatIsGiven) {
  const auto drive = openDrive(at("new.img") + ",size=1m", 4);
  EXPECT_EQ(drive->geometry().blocks, 2048U);
  EXPECT_EQ(std::filesystem::file_size(folder / "new.img"), 1U << 20);
}

TEST_F(FileDriveTest, AnExistingFileKeepsItsContent) {
  makeFile("old.img", 8192);
  std::fstream(folder / "old.img", std::ios::in | std::ios::out) << "what was there";
  const auto drive = openDrive(at("old.img"), 4);
  EXPECT_EQ(drive->geometry().blocks, 16U);
  const Bytes first = CommandMaker(*drive).read(0, 1);
  EXPECT_EQ(std::string(first.begin(), first.begin() + 14), "what was there");
}

TEST_F(FileDriveTest, BlockNIsSectorNOfTheFile) {
  Bytes data = randomBytes(1, 1024);
  {
    const auto drive = openDrive(at("x.img") + ",size=64k", 4);
    CommandMaker(*drive).run(CommandKind::write, 3, 2, &data);
  }
  std::ifstream file(folder / "x.img", std::ios::binary);
  file.seekg(3 * 512);
  Bytes found(1024);
  file.read(reinterpret_cast<char*>(found.data()), 1024);
  EXPECT_EQ(found, data);
}

TEST_F(FileDriveTest, SaysHowItReachesItsFile) {
  const auto any = openDrive(at("a.img") + ",size=1m", 4);
  EXPECT_THAT(any->description(), AllOf(HasSubstr("file " + (folder / "a.img") + ", 1 MiB, 512-byte blocks, "),
                                        AnyOf(HasSubstr("io_uring"), HasSubstr("thread pool (io_uring is refused: ")),
                                        AnyOf(HasSubstr(", O_DIRECT"), HasSubstr(", buffered ("))));
  const auto plain = openDrive(at("b.img") + ",size=1m,direct=off,engine=threads", 4);
  EXPECT_THAT(plain->description(), testing::EndsWith(", thread pool, buffered"));
  const auto calls = openDrive(at("d.img") + ",size=1m,direct=off,engine=sync", 4);
  EXPECT_THAT(calls->description(), testing::EndsWith(", synchronous calls, buffered"));
  const auto odd = openDrive(at("c.img") + ",size=520k,pi=8", 4);
  EXPECT_THAT(odd->description(), HasSubstr("buffered (sectors of 520 bytes cannot be moved by O_DIRECT)"));
}

TEST_F(FileDriveTest, WorksInCallsWithSynchronousCallsOnly) {
  const std::string address = at("x.img") + ",size=1m,engine=";
  EXPECT_TRUE(openDrive(address + "sync", 4)->capabilities().worksInCalls);
  EXPECT_FALSE(openDrive(address + "threads", 4)->capabilities().worksInCalls);
  EXPECT_FALSE(openDrive(address + "auto", 4)->capabilities().worksInCalls);
}

TEST_F(FileDriveTest, WhatCannotBeOpenedIsNamedWithTheRemedy) {
  EXPECT_THAT(complaint(at("none.img")), AllOf(HasSubstr("none.img' does not exist"), HasSubstr("size=256m")));
  EXPECT_THAT(complaint("file:" + (folder / ".")), AllOf(HasSubstr("is a folder"), HasSubstr("regular file")));
  EXPECT_THAT(complaint("file:/dev/null"), AllOf(HasSubstr("is a character device"), HasSubstr("regular file")));
  EXPECT_THAT(complaint(at("no/such/folder.img") + ",size=1m"), HasSubstr("cannot be opened"));
  makeFile("odd.img", 1000);
  EXPECT_THAT(complaint(at("odd.img")), AllOf(HasSubstr("has 1000 bytes"), HasSubstr("sectors of 512")));
  makeFile("empty.img", 0);
  EXPECT_THAT(complaint(at("empty.img")), HasSubstr("has 0 bytes"));
  makeFile("small.img", 4096);
  EXPECT_THAT(complaint(at("small.img") + ",size=1m"),
              AllOf(HasSubstr("has 4096 bytes and not the 1048576"), HasSubstr("leave size= out")));
  EXPECT_THAT(complaint(at("p.img") + ",size=520k,pi=8,direct=on"), HasSubstr("cannot be used with direct=on"));
}

TEST_F(FileDriveTest, WhatWasCreatedForNothingIsTakenAway) {
  EXPECT_THAT(complaint(at("p.img") + ",size=520k,pi=8,direct=on"), HasSubstr("direct=on"));
  EXPECT_THAT(folder.content(), testing::IsEmpty());
}

TEST_F(FileDriveTest, APipeDoesNotHang) {
  ASSERT_EQ(mkfifo((folder / "pipe").c_str(), 0600), 0);
  EXPECT_THAT(complaint(at("pipe")), HasSubstr("not a regular file"));
}

TEST_F(FileDriveTest, AFileHasOneUserAtATime) {
  const auto first = openDrive(at("x.img") + ",size=1m", 4);
  EXPECT_THAT(complaint(at("x.img")), AllOf(HasSubstr("in use"), HasSubstr("wait")));
}

TEST_F(FileDriveTest, ATrimFreesTheFilesSpace) {
  const auto drive = openDrive(at("x.img") + ",size=1m", 4);
  if (!drive->capabilities().trim) {
    // A file system without holes has no trim, and that is all there is to see.
    CommandMaker commands(*drive);
    EXPECT_EQ(senseNumber(commands.run(CommandKind::trim, 0, 8)), 0x052000U);
    return;
  }
  CommandMaker commands(*drive);
  Bytes data = randomBytes(1, 1 << 20);
  commands.run(CommandKind::write, 0, 2048, &data);
  commands.run(CommandKind::syncCache, 0, 0);
  struct stat before {};
  stat((folder / "x.img").c_str(), &before);
  commands.run(CommandKind::trim, 0, 2048);
  struct stat after {};
  stat((folder / "x.img").c_str(), &after);
  EXPECT_LT(after.st_blocks, before.st_blocks);
  EXPECT_EQ(after.st_size, 1 << 20);
}

TEST_F(FileDriveTest, AFileThatSomebodyCutsOffEndsTheTest) {
  const auto drive = openDrive(at("x.img") + ",size=1m,direct=off", 4);
  std::filesystem::resize_file(folder / "x.img", 512);
  CommandMaker commands(*drive);
  Bytes data(8 * 512);
  EXPECT_THROW(commands.run(CommandKind::read, 100, 8, &data), DriveError);
  // And the drive can still be left in order.
  drive->reset();
  DriveCompletion completion;
  EXPECT_FALSE(drive->poll(completion, true));
}

TEST_F(FileDriveTest, MoreCommandsThanItWasMadeForAreAProgrammersError) {
  const auto drive = openDrive(at("x.img") + ",size=1m", 2);
  CommandMaker commands(*drive);
  std::vector<Bytes> data(3, Bytes(512));
  drive->submit(commands.make(CommandKind::read, 0, 1, &data[0]));
  drive->submit(commands.make(CommandKind::read, 1, 1, &data[1]));
  EXPECT_THROW(drive->submit(commands.make(CommandKind::read, 2, 1, &data[2])), std::logic_error);
}

TEST_F(FileDriveTest, MayBeDroppedWithCommandsOutstanding) {
  Bytes data = randomBytes(1, 64 * 512);
  auto drive = openDrive(at("x.img") + ",size=1m", 16);
  CommandMaker commands(*drive);
  for (uint64_t i = 0; i < 16; ++i) {
    drive->submit(commands.make(CommandKind::write, 64 * i, 64, &data));
  }
  drive.reset();
  EXPECT_EQ(std::filesystem::file_size(folder / "x.img"), 1U << 20);
}

}  // namespace
}  // namespace corvane::host
