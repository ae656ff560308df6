#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "DriveData.h"
#include "Miscompare.h"
#include "support_model/ModelFramework.h"

namespace vdl::agent {
namespace {

using Requests = std::vector<std::string>;

/// What the device-interface library is asked when a miscompare was found.
Requests requestsOf(int device, bool showstop) {
  modeltest::ostraScript = {};
  modeltest::Drive drive;
  drive.thread.ostraDevice = device;
  EXPECT_EQ(Corvane::initDriveData(&drive.thread), 0);
  auto& data = *static_cast<DriveData*>(drive.threadState.registered.at(0));
  data.trace = new CommandTrace(16);
  ConfigData config;
  config.showstopOnMiscompare = showstop;
  Step step{drive.thread, data, config};
  triggerMiscompare(step, 100, 1, 2, 3, false);
  EXPECT_TRUE(data.miscompareSeen);
  Corvane::freeDriveData(&data);
  return modeltest::ostraScript.requests;
}

TEST(MiscompareDevice, IsToldTheBlockAndStoppedFirstIfThatIsWanted) {
  EXPECT_EQ(requestsOf(7, false), Requests{"ioctl 7 218"});
  EXPECT_EQ(requestsOf(7, true), (Requests{"ioctl 7 179", "ioctl 7 178", "send 7", "ioctl 7 178", "ioctl 7 218"}));
}

TEST(MiscompareDevice, IsAskedForNothingWhenThereIsNone) {
  EXPECT_EQ(requestsOf(-1, false), Requests{});
  EXPECT_EQ(requestsOf(-1, true), Requests{});
}

}  // namespace
}  // namespace vdl::agent
