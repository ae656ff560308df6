#pragma once

#include <gtest/gtest.h>

#include <atomic>
#include <exception>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "host/run/ConditionSet.h"
#include "host/run/TestRun.h"
#include "tests/run/FakeAgent.h"
#include "tests/run/FakeDrive.h"
#include "tests/run/ManualClock.h"

namespace corvane::host::testing {

struct QuietObserver : RunObserver {
  void onAgentLine(uint32_t, int, std::string_view) override { ++lines; }
  std::atomic<int> lines{0};
};

/// A test of fake drives by a fake agent that reads.
class TestRunFixture : public ::testing::Test {
 protected:
  TestRunFixture() {
    test.driveAddresses = {"fake:a"};
    test.queueDepth = 4;
    test.commandLimit = 50;
    agent.onExecute = readEverything;
  }

  /// An agent that reads wherever the LBA agent says, whenever a tag is free.
  static int readEverything(vdl::DriveThread& thread) {
    const bool free = thread.freeTags->peekNextFreeTag() != 0xFFFFFFFF;
    FakeAgent::apply(thread, free ? ConditionSet::readBit : 0);
    return 0;
  }

  RunSurroundings surroundings() {
    RunSurroundings world;
    world.agent = &table;
    world.clock = &clock;
    world.openDrive = [this](std::string_view address, uint32_t, uint64_t seed, Overwriting) -> std::unique_ptr<Drive> {
      opened.emplace_back(address);
      seeds.push_back(seed);
      auto drive = std::make_unique<FakeDrive>();
      drive->answerAtOnce();
      if (adapt) {
        adapt(*drive);
      }
      return drive;
    };
    return world;
  }

  std::string complaint() {
    try {
      const TestRun run(test, nullptr, surroundings());
    } catch (const std::exception& error) {
      return error.what();
    }
    return "accepted";
  }

  RunResult runIt() {
    TestRun run(test, &observer, surroundings());
    return run.run();
  }

  FakeAgent agent;
  vdl::AgentTable table = agent.table();
  ManualClock clock;
  QuietObserver observer;
  TestDefinition test;
  std::function<void(FakeDrive&)> adapt;
  std::vector<std::string> opened;
  std::vector<uint64_t> seeds;
};

}  // namespace corvane::host::testing
