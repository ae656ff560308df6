#include "host/ostra/DeviceTable.h"

#include <gtest/gtest.h>

#include <array>
#include <cstdint>
#include <set>
#include <thread>
#include <vector>

#include "ostra/Ostra.h"

namespace corvane::host {
namespace {

class Numbered : public VendorDevice {
 public:
  explicit Numbered(uint32_t number) : number_(number) {}
  int readDeviceParameter(uint32_t& value) override {
    value = number_;
    return 0;
  }

 private:
  uint32_t number_;
};

/// The number of the device behind a handle, or minus the error number.
int64_t numberOf(int handle) {
  uint32_t value = 0;
  const int error = Ostra::ioctl(handle, 4241, 1, &value);
  return error == 0 ? int64_t{value} : -int64_t{error};
}

TEST(DeviceTable, EveryHandleLeadsToItsOwnDevice) {
  Numbered first(1);
  Numbered second(2);
  const int firstHandle = attachDevice(first);
  const int secondHandle = attachDevice(second);
  EXPECT_GE(firstHandle, 0);
  EXPECT_NE(firstHandle, secondHandle);
  EXPECT_EQ(numberOf(firstHandle), 1);
  EXPECT_EQ(numberOf(secondHandle), 2);
  detachDevice(firstHandle);
  detachDevice(secondHandle);
}

TEST(DeviceTable, ADetachedHandleStaysDeadWhenAnotherDeviceComes) {
  Numbered first(1);
  Numbered second(2);
  const int gone = attachDevice(first);
  detachDevice(gone);
  const int handle = attachDevice(second);
  EXPECT_EQ(numberOf(gone), -VendorDevice::noSuchDevice);
  EXPECT_EQ(numberOf(handle), 2);
  detachDevice(handle);
}

TEST(DeviceTable, DetachingLeavesTheOtherHandlesAlone) {
  Numbered first(1);
  Numbered second(2);
  const int firstHandle = attachDevice(first);
  const int secondHandle = attachDevice(second);
  detachDevice(firstHandle);
  detachDevice(-1);
  detachDevice(secondHandle + 1);
  EXPECT_EQ(numberOf(secondHandle), 2);
  detachDevice(secondHandle);
}

TEST(DeviceTable, OneDeviceMayHaveTwoHandles) {
  Numbered device(1);
  const int first = attachDevice(device);
  const int second = attachDevice(device);
  detachDevice(first);
  EXPECT_EQ(numberOf(second), 1);
  detachDevice(second);
}

TEST(DeviceTable, AnyThreadMayAttachUseAndDetach) {
  constexpr size_t threadCount = 4;
  constexpr uint32_t rounds = 100;
  std::array<std::vector<int>, threadCount> handles;
  std::array<uint32_t, threadCount> wrong{};
  std::vector<std::thread> threads;
  for (size_t index = 0; index < threadCount; ++index) {
    threads.emplace_back([&handles, &wrong, index] {
      Numbered device(static_cast<uint32_t>(index));
      for (uint32_t round = 0; round < rounds; ++round) {
        const int handle = attachDevice(device);
        wrong[index] += numberOf(handle) == static_cast<int64_t>(index) ? 0U : 1U;
        detachDevice(handle);
        handles[index].push_back(handle);
      }
    });
  }
  for (std::thread& thread : threads) {
    thread.join();
  }
  std::set<int> distinct;
  for (size_t index = 0; index < threadCount; ++index) {
    EXPECT_EQ(wrong[index], 0U);
    distinct.insert(handles[index].begin(), handles[index].end());
  }
  EXPECT_EQ(distinct.size(), threadCount * rounds);
}

TEST(DeviceTable, ADevicesErrorIsTheCallers) {
  class Failing : public VendorDevice {
   public:
    int writeShowstopSetting(uint32_t) override { return 5; }
    int sendRequest(const uint8_t*, uint32_t) override { return 6; }
  } device;
  const int handle = attachDevice(device);
  const uint32_t value = 0;
  std::array<uint8_t, 24> block{24};
  EXPECT_EQ(Ostra::ioctl(handle, 178, 1, &value), 5);
  EXPECT_EQ(Ostra::send(handle, block.data()), 6) << "a block that is its header only is long enough";
  detachDevice(handle);
}

TEST(DeviceTable, ADeviceWithoutVendorCommandsRefusesThem) {
  VendorDevice plain;
  const int handle = attachDevice(plain);
  std::array<uint8_t, 24> block{24};
  EXPECT_EQ(Ostra::send(handle, block.data()), VendorDevice::unsupported);
  detachDevice(handle);
}

}  // namespace
}  // namespace corvane::host
