#include "host/run/MiscompareRecorder.h"

#include <gtest/gtest.h>

#include "ostra/Ostra.h"

namespace corvane::host {
namespace {

constexpr uint32_t reportMiscompareRequest = 218;

int report(const MiscompareRecorder& recorder, uint64_t lba) {
  uint32_t status = 0;
  return Ostra::ioctl(recorder.handle(), reportMiscompareRequest, 2, &status, &lba);
}

TEST(MiscompareRecorder, RemembersTheFirstBlockThatWasReported) {
  const MiscompareRecorder recorder;
  EXPECT_EQ(recorder.lba(), std::nullopt);
  EXPECT_EQ(report(recorder, 0), 0);
  EXPECT_EQ(report(recorder, 77), 0);
  EXPECT_EQ(recorder.lba(), 0U);
}

TEST(MiscompareRecorder, EachIsADeviceOfItsOwn) {
  const MiscompareRecorder one;
  const MiscompareRecorder other;
  EXPECT_NE(one.handle(), other.handle());
  report(other, 5);
  EXPECT_EQ(one.lba(), std::nullopt);
  EXPECT_EQ(other.lba(), 5U);
}

TEST(MiscompareRecorder, KnowsNoVendorRequests) {
  MiscompareRecorder recorder;
  uint32_t value = 0;
  EXPECT_EQ(recorder.readShowstopSetting(value), VendorDevice::unsupported);
  EXPECT_EQ(recorder.sendRequest(nullptr, 0), VendorDevice::unsupported);
}

}  // namespace
}  // namespace corvane::host
