#include <gtest/gtest.h>

#include <memory>
#include <vector>

#include "bench/AllocationCounter.h"
#include "bench/CostlessAgent.h"
#include "host/drive/DriveFactory.h"
#include "host/run/StepLoop.h"

namespace corvane::host {
namespace {

/// Steps on a simulated drive with an agent that allocates nothing itself.
class StepLoopAllocationTest : public ::testing::Test {
 protected:
  static constexpr uint32_t depth = 32;
  static constexpr uint32_t maxBlocks = 8;
  static constexpr uint32_t waiting = 500;
  static constexpr uint64_t driveBlocks = 64U << 10;

  /// Allocations of some thousand steps after as many that nobody counted.
  uint64_t allocationsWith(std::vector<CommandKind> writes) {
    DriveThreadHost::Settings thread;
    thread.name = "sim";
    thread.queueDepth = depth;
    DriveThreadHost host(thread);
    const std::unique_ptr<Drive> drive = openDrive("sim:32m", depth, 1);
    CommandJournal journal(1U << 10, depth, HostClock::real());
    const std::unique_ptr<LbaAgent> lbaAgent =
        makeLbaAgent("mixed", {.endLba = driveBlocks, .minBlocks = 1, .maxBlocks = maxBlocks}, 1);
    StepSettings settings;
    settings.maxBlocks = maxBlocks;
    settings.maxLba = driveBlocks - 1;
    settings.checks = {.minQueueSize = waiting, .maxQueueSize = 2 * waiting};
    settings.journal = &journal;
    const vdl::AgentTable table = bench::CostlessAgent::table();
    bench::CostlessAgent agent(host, std::move(writes), maxBlocks, waiting);
    StepLoop loop(table, nullptr, host, *drive, *lbaAgent, settings, counters, HostClock::real());
    makeSteps(loop, 60'000);
    const uint64_t before = bench::allocations();
    const uint64_t issuedBefore = loop.commandsIssued();
    makeSteps(loop, 20'000);
    const uint64_t made = bench::allocations() - before;
    EXPECT_GT(loop.commandsIssued() - issuedBefore, 15'000U);
    loop.abandon();
    return made;
  }

  static void makeSteps(StepLoop& loop, uint32_t steps) {
    for (uint32_t i = 0; i < steps; ++i) {
      ASSERT_EQ(loop.step(), 0);
    }
  }

  DriveCounters counters;
};

TEST_F(StepLoopAllocationTest, writesAndReadBacksTakeNoMemoryOnceTheyAreUnderWay) {
  EXPECT_EQ(allocationsWith({CommandKind::write}), 0U);
  EXPECT_GT(counters.checked.oneOutcome.get(), 1000U) << "the account took part";
}

TEST_F(StepLoopAllocationTest, norDoTheOtherKindsOfWrites) {
  EXPECT_EQ(allocationsWith({CommandKind::write, CommandKind::writeSame, CommandKind::trim}), 0U);
  EXPECT_GT(counters.completed[static_cast<size_t>(CommandKind::trim)].get(), 1000U);
  EXPECT_GT(counters.checked.oneOutcome.get(), 1000U) << "the account took part";
}

TEST_F(StepLoopAllocationTest, norDoAtomicWrites) {
  EXPECT_EQ(allocationsWith({CommandKind::write, CommandKind::writeAtomic}), 0U);
  EXPECT_GT(counters.completed[static_cast<size_t>(CommandKind::writeAtomic)].get(), 1000U);
}

}  // namespace
}  // namespace corvane::host
