#include "host/drive/DriveFactory.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>

#include "host/drive/DriveError.h"
#include "tests/support/TempFolder.h"

namespace corvane::host {
namespace {

using testing::AllOf;
using testing::HasSubstr;
using testing::Not;

/// What an address is refused for; empty for one that is accepted.
std::string faultOf(const std::string& address) {
  try {
    checkDriveAddress(address);
    return {};
  } catch (const DriveAddressError& error) {
    return error.what();
  }
}

TEST(DriveFactory, ChecksAnAddressOfEveryKindWithoutTheDrive) {
  for (const char* address : {"/dev/not-there,trim=off", "block:/dev/not-there,engine=sync",
                              "sg:/dev/sg99999,timeout=5", "nvme:/dev/not-there,pi=off",
                              "iscsi://192.0.2.1/iqn.2026-01.example:disk/1,connect=5", "sim:1g,cache=volatile"}) {
    EXPECT_EQ(faultOf(address), "") << address;
  }
}

TEST(DriveFactory, ChecksTheAddressOfAFileWithoutMakingIt) {
  const tests::TempFolder folder;
  const std::string path = folder / "drive.img";
  EXPECT_EQ(faultOf("file:" + path + ",size=64k"), "");
  EXPECT_FALSE(std::filesystem::exists(path));
}

TEST(DriveFactory, RefusesAKeyOfAnotherKindBeforeAnyDriveIsOpened) {
  for (const char* address : {"/dev/not-there,size=1g", "file:not-there,trim=off", "sg:/dev/sg99999,engine=sync",
                              "nvme:/dev/not-there,cache=volatile", "sim:1g,direct=on",
                              "iscsi://192.0.2.1/iqn.2026-01.example:disk/1,depth=5"}) {
    EXPECT_THAT(faultOf(address), AllOf(HasSubstr(address), HasSubstr("is not a key of"))) << address;
  }
}

TEST(DriveFactory, RefusesAddressesThatNameNothing) {
  for (const char* address : {"block:", "file:", "sg:", "nvme:", "iscsi://", "tape:x", "sim"}) {
    EXPECT_THAT(faultOf(address), HasSubstr(address)) << address;
  }
}

TEST(DriveFactory, ShowsNoPasswordWhereTheKindWasForgotten) {
  for (const char* address : {"me%geheim@192.0.2.1:3260/iqn.2026-01.example:disk/1",
                              "me%geh:eim@192.0.2.1/iqn.2026-01.example:disk/1", "me%geheim@host/target:disk/1"}) {
    const std::string fault = faultOf(address);
    EXPECT_THAT(fault, HasSubstr("is not a kind of drive")) << address;
    EXPECT_THAT(fault, Not(HasSubstr("geh"))) << address;
  }
}

TEST(DriveFactory, ShowsNoPasswordOfAPieceThatIsNoneOfTheKinds) {
  for (const char* address : {"sim:iscsi://me%geheim@host/target/1", "sim:1g,iscsi://me%geheim@host/target/1",
                              "sim:iscsi://me%geheim,block=512"}) {
    const std::string fault = faultOf(address);
    EXPECT_THAT(fault, AllOf(HasSubstr("me%***"), Not(HasSubstr("geheim")))) << address;
  }
}

}  // namespace
}  // namespace corvane::host
