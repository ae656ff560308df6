#include "host/run/MiscompareRecorder.h"

#include <gtest/gtest.h>

#include <array>
#include <vector>

#include "host/drive/DriveError.h"
#include "ostra/Ostra.h"
#include "tests/run/FakeDrive.h"

namespace corvane::host {
namespace {

constexpr uint32_t setShowstopRequest = 178;
constexpr uint32_t getShowstopRequest = 179;
constexpr uint32_t reportMiscompareRequest = 218;
constexpr uint32_t deviceParameterRequest = 4241;
constexpr uint32_t blockBytes = 112;

/// A drive that is asked for vendor requests.
class VendorDrive : public testing::FakeDrive {
 public:
  int sendVendorRequest(const uint8_t* block, uint32_t bytes) override {
    requests.emplace_back(block, block + bytes);
    if (broken) {
      throw DriveConnectionLost("gone");
    }
    return answer;
  }

  std::vector<std::vector<uint8_t>> requests;
  int answer = 0;
  bool broken = false;
};

class MiscompareRecorderTest : public ::testing::Test {
 protected:
  static int report(const MiscompareRecorder& recorder, uint64_t lba) {
    uint32_t status = 0;
    return Ostra::ioctl(recorder.handle(), reportMiscompareRequest, 2, &status, &lba);
  }
  int send() { return Ostra::send(recorder.handle(), block.data()); }

  VendorDrive drive;
  MiscompareRecorder recorder{drive};
  std::array<uint8_t, blockBytes> block{blockBytes, 0, 0, 0, 1};
};

TEST_F(MiscompareRecorderTest, RemembersTheFirstBlockThatWasReported) {
  EXPECT_EQ(recorder.lba(), std::nullopt);
  EXPECT_EQ(report(recorder, 0), 0);
  EXPECT_EQ(report(recorder, 77), 0);
  EXPECT_EQ(recorder.lba(), 0U);
}

TEST_F(MiscompareRecorderTest, EachIsADeviceOfItsOwn) {
  const MiscompareRecorder other(drive);
  EXPECT_NE(recorder.handle(), other.handle());
  report(other, 5);
  EXPECT_EQ(recorder.lba(), std::nullopt);
  EXPECT_EQ(other.lba(), 5U);
}

TEST_F(MiscompareRecorderTest, PassesAWholeRequestBlockOnToItsDrive) {
  EXPECT_EQ(send(), 0);
  ASSERT_EQ(drive.requests.size(), 1U);
  EXPECT_EQ(drive.requests[0], std::vector<uint8_t>(block.begin(), block.end()));
}

TEST_F(MiscompareRecorderTest, AnswersWhatTheDriveAnswers) {
  drive.answer = 16;
  EXPECT_EQ(send(), 16);
}

TEST_F(MiscompareRecorderTest, AnswersUnsupportedForADriveWithoutAWay) {
  testing::FakeDrive plain;
  const MiscompareRecorder other(plain);
  EXPECT_EQ(Ostra::send(other.handle(), block.data()), VendorDevice::unsupported);
}

TEST_F(MiscompareRecorderTest, ADriveThatCannotBeReachedIsAnErrorNumberAndNoException) {
  drive.broken = true;
  EXPECT_EQ(send(), VendorDevice::inputOutputError);
}

TEST_F(MiscompareRecorderTest, ADriveThatIsGoneIsAskedNoMore) {
  recorder.forgetDrive();
  EXPECT_EQ(send(), VendorDevice::noSuchDevice);
  EXPECT_TRUE(drive.requests.empty());
}

TEST_F(MiscompareRecorderTest, SettingsOfAVendorsDriverStayUnsupported) {
  uint32_t value = 0;
  for (const uint32_t request : {setShowstopRequest, getShowstopRequest, deviceParameterRequest}) {
    EXPECT_EQ(Ostra::ioctl(recorder.handle(), request, 1, &value), VendorDevice::unsupported) << request;
  }
  EXPECT_TRUE(drive.requests.empty());
}

}  // namespace
}  // namespace corvane::host
