#include "ostra/Ostra.h"

#include <gtest/gtest.h>

#include <thread>
#include <vector>

#include "host/ostra/DeviceTable.h"

namespace corvane::host {
namespace {

class Recorder : public VendorDevice {
 public:
  int readShowstopSetting(uint32_t& value) override {
    value = setting;
    return 0;
  }
  int writeShowstopSetting(uint32_t value) override {
    setting = value;
    return 0;
  }
  int reportMiscompare(uint32_t status, uint64_t lba) override {
    word = status;
    reported = lba;
    return 0;
  }
  int readDeviceParameter(uint32_t& value) override {
    value = 77;
    return 0;
  }
  int sendRequest(const uint8_t* block, uint32_t bytes) override {
    request.assign(block, block + bytes);
    return 0;
  }

  uint32_t setting = 5;
  uint32_t word = 0;
  uint64_t reported = 0;
  std::vector<uint8_t> request;
};

class OstraTest : public testing::Test {
 protected:
  void SetUp() override { handle = attachDevice(device); }
  void TearDown() override { detachDevice(handle); }

  Recorder device;
  int handle = -1;
};

TEST_F(OstraTest, RequestsReachTheDevice) {
  uint32_t value = 9;
  EXPECT_EQ(Ostra::ioctl(handle, 179, 1, &value), 0);
  EXPECT_EQ(value, 5U);
  value = 6;
  EXPECT_EQ(Ostra::ioctl(handle, 178, 1, &value), 0);
  EXPECT_EQ(device.setting, 6U);
  const uint32_t word = 3;
  const uint64_t lba = 0x123456789A;
  EXPECT_EQ(Ostra::ioctl(handle, 218, 2, &word, &lba), 0);
  EXPECT_EQ(device.word, 3U);
  EXPECT_EQ(device.reported, lba);
  EXPECT_EQ(Ostra::ioctl(handle, 4241, 1, &value), 0);
  EXPECT_EQ(value, 77U);
}

TEST_F(OstraTest, WrongRequestsAreErrorsAndNeverZero) {
  uint32_t value = 9;
  EXPECT_EQ(Ostra::ioctl(handle, 1, 1, &value), VendorDevice::unsupported);
  EXPECT_EQ(Ostra::ioctl(handle, 179, 2, &value, &value), VendorDevice::badArgument);
  EXPECT_EQ(Ostra::ioctl(handle, 179, 1, static_cast<uint32_t*>(nullptr)), VendorDevice::badArgument);
  EXPECT_EQ(Ostra::ioctl(handle, 218, 2, &value, static_cast<uint64_t*>(nullptr)), VendorDevice::badArgument);
  EXPECT_EQ(Ostra::ioctl(-1, 179, 1, &value), VendorDevice::noSuchDevice);
  EXPECT_EQ(Ostra::ioctl(handle + 1000, 179, 1, &value), VendorDevice::noSuchDevice);
  EXPECT_EQ(value, 9U);
}

TEST_F(OstraTest, AVendorCommandIsAsLongAsItsFirstWordSays) {
  std::vector<uint8_t> block(40, 0xAB);
  block[0] = 40;
  block[1] = block[2] = block[3] = 0;
  EXPECT_EQ(Ostra::send(handle, block.data()), 0);
  EXPECT_EQ(device.request, block);
  block[0] = 23;
  EXPECT_EQ(Ostra::send(handle, block.data()), VendorDevice::badArgument);
  EXPECT_EQ(Ostra::send(handle, nullptr), VendorDevice::badArgument);
  EXPECT_EQ(Ostra::send(-1, block.data()), VendorDevice::noSuchDevice);
}

TEST(Ostra, ADetachedDeviceIsGone) {
  Recorder device;
  const int handle = attachDevice(device);
  detachDevice(handle);
  detachDevice(handle);
  detachDevice(-5);
  uint32_t value = 0;
  EXPECT_EQ(Ostra::ioctl(handle, 179, 1, &value), VendorDevice::noSuchDevice);
}

TEST(Ostra, ADeviceThatOffersNothingSaysSo) {
  VendorDevice plain;
  const int handle = attachDevice(plain);
  uint32_t value = 0;
  const uint64_t lba = 0;
  EXPECT_EQ(Ostra::ioctl(handle, 178, 1, &value), VendorDevice::unsupported);
  EXPECT_EQ(Ostra::ioctl(handle, 179, 1, &value), VendorDevice::unsupported);
  EXPECT_EQ(Ostra::ioctl(handle, 218, 2, &value, &lba), VendorDevice::unsupported);
  EXPECT_EQ(Ostra::ioctl(handle, 4241, 1, &value), VendorDevice::unsupported);
  detachDevice(handle);
}

TEST(Ostra, EachThreadHasItsOwnDeviceIndex) {
  setCurrentDeviceIndex(3);
  uint32_t other = 99;
  std::thread thread([&other] {
    other = Ostra::getCurrentDeviceIndex();
    setCurrentDeviceIndex(7);
  });
  thread.join();
  EXPECT_EQ(other, 0U);
  EXPECT_EQ(Ostra::getCurrentDeviceIndex(), 3U);
  setCurrentDeviceIndex(0);
}

}  // namespace
}  // namespace corvane::host
