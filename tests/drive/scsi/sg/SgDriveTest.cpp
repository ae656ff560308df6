#include "host/drive/scsi/sg/SgDrive.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fstream>

#include "host/drive/DriveError.h"
#include "host/drive/DriveFactory.h"
#include "tests/support/TempFolder.h"

namespace corvane::host {
namespace {

using testing::AllOf;
using testing::HasSubstr;

/// What is said about an address that is right by itself and whose drive cannot be opened.
std::string fault(const std::string& address) {
  try {
    openDrive(address, 8);
  } catch (const DriveError& error) {
    return error.what();
  }
  return "it was opened";
}

std::string complaint(const std::string& address) {
  try {
    openDrive(address, 8);
  } catch (const DriveAddressError& error) {
    return error.what();
  }
  return "it was taken";
}

TEST(SgDrive, ADeviceThatIsNotThereIsNamed) {
  EXPECT_EQ(fault("sg:/dev/sg4095"),
            "SCSI device '/dev/sg4095' cannot be opened: No such file or directory; see /dev/sg* and whether the "
            "module sg is loaded");
}

TEST(SgDrive, OtherDevicesAndFilesAreRefused) {
  const std::string refusal = " is not a SCSI generic device; those are called /dev/sg0, /dev/sg1 and so on";
  EXPECT_EQ(fault("sg:/dev/null"), "SCSI device '/dev/null'" + refusal);
  const tests::TempFolder folder;
  const std::string path = folder / "file";
  std::ofstream(path) << "content";
  EXPECT_EQ(fault("sg:" + path), "SCSI device '" + path + "'" + refusal);
}

TEST(SgDrive, AFolderIsNoDevice) {
  EXPECT_THAT(fault("sg:/dev"), HasSubstr("'/dev' cannot be opened: Is a directory"));
}

TEST(SgDrive, WrongAddressesNameTheirPiece) {
  EXPECT_EQ(complaint("sg:"), "drive address 'sg:': it names no device; write 'sg:/dev/sg0'");
  EXPECT_THAT(complaint("sg:/dev/sg0,timeout=0"), HasSubstr("timeout=0 is not a whole number from 1 to 3600"));
  EXPECT_THAT(complaint("sg:/dev/sg0,timeout=3601"), HasSubstr("timeout=3601"));
  EXPECT_THAT(complaint("sg:/dev/sg0,timout=3"), AllOf(HasSubstr("'timout'"), HasSubstr("timeout")));
}

TEST(SgDrive, ItsKeysAreShown) {
  EXPECT_THAT(driveAddressHelp(), AllOf(HasSubstr("sg:/dev/sgN"), HasSubstr("timeout=30")));
}

}  // namespace
}  // namespace corvane::host
