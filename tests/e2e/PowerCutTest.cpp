// What the agent says when power cuts meet a volatile write cache.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "host/drive/ForwardingDrive.h"
#include "tests/e2e/EndToEnd.h"

namespace corvane::host::e2e {
namespace {

using testing::StartsWith;

/// Keeps acknowledged writes in a cache that a power cut empties, and does not say so.
class SecretiveDrive : public ForwardingDrive {
 public:
  explicit SecretiveDrive(std::unique_ptr<Drive> drive)
      : ForwardingDrive(std::move(drive)), claims_(inner().capabilities()) {
    claims_.volatileCache = false;
  }
  const DriveCapabilities& capabilities() const override { return claims_; }

 private:
  DriveCapabilities claims_;
};

class PowerCut : public testing::Test {
 protected:
  PowerCut() {
    test = prepared({}, workspace);
    test.driveAddresses = {"sim:4m,cache=volatile"};
    test.powerToggle = PowerToggle::withSync;
    test.commandLimit = 8'000;
    test.agentOptions = {{"Min Queue Size", "64"},
                         {"Max Queue Size", "256"},
                         {"Write Splice Detection", "true"},
                         {"PowerToggle Freq", "1"}};
  }

  Workspace workspace;
  TestDefinition test;
};

TEST_F(PowerCut, TakesNothingThatWasFlushed) {
  const RunResult result = runTest(test);
  EXPECT_EQ(result.status, RunStatus::clean) << agentLines(result);
  EXPECT_GT(result.totals().powerCycles, 5U);
  EXPECT_GT(result.totals().blocksCompared, 1000U);
}

TEST_F(PowerCut, AfterAFlushThatLiedIsAMiscompare) {
  test.faults = {parseFaultSpec("lying-flush:at=command:2000")};
  const RunResult result = runTest(test);
  ASSERT_EQ(result.status, RunStatus::dataFailure) << agentLines(result);
  EXPECT_EQ(result.drives[0].agentStatus, -1046);
  EXPECT_THAT(result.drives[0].error, StartsWith("Miscompare Detected at LBA 0x"));
  ASSERT_EQ(result.drives[0].injections.size(), 1U);
  const auto& altered = result.drives[0].injections[0].altered;
  EXPECT_TRUE(std::any_of(altered.begin(), altered.end(),
                          [&](const AlteredBlock& block) { return block.lba == result.drives[0].findingLba; }));
}

TEST_F(PowerCut, WithoutAFlushShowsAVolatileCacheThatNobodyKnewOf) {
  test.powerToggle = PowerToggle::withoutSync;
  const RunResult result =
      runTest(test, [](std::unique_ptr<Drive> drive) { return std::make_unique<SecretiveDrive>(std::move(drive)); });
  ASSERT_EQ(result.status, RunStatus::dataFailure) << agentLines(result);
  EXPECT_EQ(result.drives[0].agentStatus, -1046);
  EXPECT_GT(result.totals().powerCycles, 0U);
}

TEST_F(PowerCut, WithForcedUnitAccessNeedsNoFlush) {
  test.powerToggle = PowerToggle::withoutSync;
  test.forceUnitAccess = true;
  const RunResult result = runTest(test);
  EXPECT_EQ(result.status, RunStatus::clean) << agentLines(result);
  EXPECT_GT(result.totals().powerCycles, 5U);
}

}  // namespace
}  // namespace corvane::host::e2e
