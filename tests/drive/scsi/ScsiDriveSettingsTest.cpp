#include "host/drive/scsi/ScsiDriveSettings.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "host/drive/DriveError.h"

namespace corvane::host {
namespace {

using ::testing::HasSubstr;

ScsiDriveSettings settingsOf(const std::string& keys) {
  DriveAddress address("scsi:target" + keys);
  const ScsiDriveSettings settings = takeScsiDriveSettings(address);
  address.checkAllTaken();
  return settings;
}

std::string complaint(const std::string& keys) {
  try {
    settingsOf(keys);
  } catch (const DriveAddressError& error) {
    return error.what();
  }
  return "accepted";
}

TEST(ScsiDriveSettings, EveryKeyHasADefault) {
  const ScsiDriveSettings settings = settingsOf("");
  EXPECT_EQ(settings.trim, ScsiDriveSettings::Trim::wherePossible);
  EXPECT_EQ(settings.verify, ScsiDriveSettings::Verify::wherePossible);
  EXPECT_FALSE(settings.protection);
  EXPECT_EQ(settings.readySeconds, 30U);
}

TEST(ScsiDriveSettings, EveryKeyIsTaken) {
  using Trim = ScsiDriveSettings::Trim;
  using Verify = ScsiDriveSettings::Verify;
  const ScsiDriveSettings settings = settingsOf(",trim=unmap,verify=host,pi=on,ready=5");
  EXPECT_EQ(settings.trim, Trim::unmap);
  EXPECT_EQ(settings.verify, Verify::byHost);
  EXPECT_TRUE(settings.protection);
  EXPECT_EQ(settings.readySeconds, 5U);
  EXPECT_EQ(settingsOf(",trim=writesame").trim, Trim::writeSame);
  EXPECT_EQ(settingsOf(",trim=off").trim, Trim::never);
  EXPECT_EQ(settingsOf(",verify=device").verify, Verify::byUnit);
}

TEST(ScsiDriveSettings, WrongValuesAreNamedWithWhatIsTaken) {
  EXPECT_EQ(complaint(",trim=zero"),
            "drive address 'scsi:target,trim=zero': trim=zero is not known; it takes auto, writesame, unmap, off");
  EXPECT_THAT(complaint(",verify=me"), HasSubstr("verify=me is not known; it takes auto, device, host"));
  EXPECT_THAT(complaint(",pi=8"), HasSubstr("pi=8 is not known; it takes off, on"));
  EXPECT_THAT(complaint(",ready=4000"), HasSubstr("ready=4000 is not a whole number from 0 to 3600"));
  EXPECT_THAT(complaint(",trims=off"), HasSubstr("'trims' is not a key"));
}

TEST(ScsiDriveSettings, TheHelpNamesEveryKey) {
  for (const char* key : {"trim=auto", "verify=auto", "pi=off", "ready=30"}) {
    EXPECT_THAT(scsiDriveKeysHelp(), HasSubstr(key));
  }
}

}  // namespace
}  // namespace corvane::host
