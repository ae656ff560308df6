#include <gtest/gtest.h>

#include <deque>
#include <string>
#include <vector>

#include "ConfigData.h"
#include "DriveData.h"
#include "support_model/ModelFramework.h"

namespace vdl {
namespace {

/// What a framework is asked when a drive was reset: another one than ours may give every argument a meaning.
TEST(DeviceResetTags, AreTakenBackOneByOneWithPlainArguments) {
  modeltest::Drive drive;
  ASSERT_EQ(Corvane::initDriveData(&drive.thread), 0);
  void* const data = drive.threadState.registered.at(0);
  drive.tagState.outstanding = {5, 0, 1023};
  const Corvane::ConfigData config;
  EXPECT_EQ(Corvane::deviceReset(&drive.thread, &config, data), 0);
  EXPECT_EQ(drive.tagState.calls, (std::vector<std::string>{"get 0 false", "push 5 0", "get 0 false", "push 0 0",
                                                            "get 0 false", "push 1023 0", "get 0 false"}));
  EXPECT_EQ(drive.tagState.free, (std::deque<uint32_t>{5, 0, 1023}));
  Corvane::freeDriveData(data);
}

}  // namespace
}  // namespace vdl
