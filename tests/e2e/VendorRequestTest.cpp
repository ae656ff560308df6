// What the built agent's showstop sends to a drive.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "host/drive/ForwardingDrive.h"
#include "host/ostra/DeviceTable.h"
#include "tests/e2e/EndToEnd.h"

namespace corvane::host::e2e {
namespace {

using testing::Contains;
using testing::Field;
using testing::HasSubstr;
using testing::Not;

using Blocks = std::vector<std::vector<uint8_t>>;

/// Takes vendor requests, and answers them as it is told.
class VendorDrive : public ForwardingDrive {
 public:
  VendorDrive(std::unique_ptr<Drive> drive, int answer, Blocks& sent)
      : ForwardingDrive(std::move(drive)), answer_(answer), sent_(sent) {}

  int sendVendorRequest(const uint8_t* block, uint32_t bytes) override {
    sent_.emplace_back(block, block + bytes);
    return answer_;
  }

 private:
  int answer_;
  Blocks& sent_;
};

class VendorRequest : public testing::Test {
 protected:
  VendorRequest() {
    test = prepared({}, workspace);
    test.driveAddresses = {"sim:4m"};
    test.commandLimit = 5'000;
    test.agentOptions = {{"Min Queue Size", "64"}, {"Max Queue Size", "256"}, {"Showstop on Miscompare", "true"}};
    test.faults = {parseFaultSpec("lost-write:at=command:300")};
  }

  RunResult runOnVendorDrive(int answer) {
    return runTest(test, [&](std::unique_ptr<Drive> drive) {
      return std::make_unique<VendorDrive>(std::move(drive), answer, sent);
    });
  }

  static auto saysShowstopFailed(const std::string& number) {
    return Contains(Field(&AgentMessages::Line::text, HasSubstr("Failed to issue Showstop, ostra err " + number)));
  }

  Workspace workspace;
  TestDefinition test;
  Blocks sent;
};

TEST_F(VendorRequest, AMiscompareStopsADriveThatTakesThemOnce) {
  const RunResult result = runOnVendorDrive(0);
  ASSERT_EQ(result.status, RunStatus::dataFailure) << agentLines(result);
  ASSERT_EQ(sent.size(), 1U);
  EXPECT_EQ(sent[0].size(), 112U);
  EXPECT_EQ(sent[0][0], 112U);
  EXPECT_THAT(result.drives[0].messages.lines, Not(saysShowstopFailed("")));
}

TEST_F(VendorRequest, ADriveThatRefusesItIsNamedWithItsErrorNumber) {
  const RunResult result = runOnVendorDrive(22);
  ASSERT_EQ(result.status, RunStatus::dataFailure) << agentLines(result);
  EXPECT_EQ(sent.size(), 1U);
  EXPECT_THAT(result.drives[0].messages.lines, saysShowstopFailed("22"));
}

TEST_F(VendorRequest, ADriveWithoutAWayForThemIsToldToBeUnsupported) {
  const RunResult result = runTest(test);
  ASSERT_EQ(result.status, RunStatus::dataFailure) << agentLines(result);
  EXPECT_THAT(result.drives[0].messages.lines, saysShowstopFailed(std::to_string(VendorDevice::unsupported)));
}

TEST_F(VendorRequest, WithoutTheOptionNothingIsSent) {
  test.agentOptions.pop_back();
  EXPECT_EQ(runOnVendorDrive(0).status, RunStatus::dataFailure);
  EXPECT_TRUE(sent.empty());
}

}  // namespace
}  // namespace corvane::host::e2e
