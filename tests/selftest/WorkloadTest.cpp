#include "host/selftest/Workload.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <set>

#include "host/drive/DriveFactory.h"
#include "host/fault/FaultNeeds.h"
#include "host/run/FaultSetup.h"
#include "host/run/PluginLoader.h"
#include "host/run/TestRun.h"

namespace corvane::host {
namespace {

TEST(Workload, NamesAreUnique) {
  std::set<std::string> names;
  for (const Workload& workload : workloads()) {
    EXPECT_FALSE(workload.help.empty());
    names.insert(workload.name);
  }
  EXPECT_EQ(names.size(), workloads().size());
}

TEST(Workload, EachIsATestThatCanBeRun) {
  const AgentPlugin plugin(CORVANE_AGENT_PATH);
  std::vector<Workload> all = workloads();
  all.push_back(canaryWorkload());
  for (const Workload& workload : all) {
    RunSurroundings world;
    world.agent = &plugin.table();
    EXPECT_NO_THROW(TestRun(workload.test, nullptr, world)) << workload.name;
  }
}

TEST(Workload, EveryClassOfFaultsCanStrikeInOneOfThem) {
  for (const FaultClassInfo& info : faultClasses()) {
    const FaultSpec spec{.what = info.what, .atCommand = 1, .most = 1};
    const bool expressible = std::ranges::any_of(workloads(), [&spec](const Workload& workload) {
      const auto drive = openDrive(workload.test.driveAddresses.front(), 1);
      return faultNeeds(spec, faultSurroundings(workload.test), drive->geometry()).empty();
    });
    EXPECT_TRUE(expressible) << info.name;
  }
}

}  // namespace
}  // namespace corvane::host
