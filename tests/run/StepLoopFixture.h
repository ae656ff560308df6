#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "host/run/ConditionSet.h"
#include "host/run/StepLoop.h"
#include "tests/run/FakeAgent.h"
#include "tests/run/FakeDrive.h"
#include "tests/run/ManualClock.h"

namespace corvane::host::testing {

inline constexpr uint32_t nothing = 0xFFFFFFFF;  ///< "LastTagID" and "LastStatusByte" when no command finished

/// 1000, 1010, 1020, … with lengths 1, 2, 3, 4, 1, ….
struct CountingLbaAgent final : LbaAgent {
  LbaChoice next() override {
    const uint32_t n = calls++;
    return {.lba = 1000 + 10 * uint64_t{n}, .blocks = 1 + n % 4, .atomicBound = 2 + n % 3};
  }
  uint32_t calls = 0;
};

/// What the agent sees when `execute` begins.
struct Seen {
  uint64_t lba;
  uint32_t blocks;
  uint32_t bound;
  uint32_t lastTag;
  uint32_t status;
  uint32_t readValid;
  uint32_t skipGen;
  uint32_t epo;
  uint64_t senseBytes;
  uint64_t readBytes;
  const uint8_t* readData;
  uint64_t conditions;
  uint32_t nextTag;
};

/// A step loop between an agent and a drive that the test plays.
class StepLoopFixture : public ::testing::Test {
 protected:
  static constexpr uint32_t sector = 512;

  StepLoopFixture() {
    settings.maxBlocks = 8;
    settings.maxLba = drive.shape.blocks - 1;
  }

  /// Makes the loop; the first call decides depth and settings.
  StepLoop& loop(uint32_t depth = 4) {
    if (!loop_) {
      DriveThreadHost::Settings threadSettings;
      threadSettings.name = "fake";
      threadSettings.blockSize = sector;
      threadSettings.protectionEnabled = protectionBytes != 0;
      threadSettings.protectionBytes = protectionBytes;
      threadSettings.queueDepth = depth;
      host = std::make_unique<DriveThreadHost>(threadSettings);
      table = agent.table();
      loop_ = std::make_unique<StepLoop>(table, nullptr, *host, drive, lbaAgent, settings, counters, clock);
      writeMemory.resize(depth);
      for (auto& memory : writeMemory) {
        memory.resize(uint64_t{settings.maxBlocks} * (sector + protectionBytes + 8));
      }
    }
    return *loop_;
  }

  Seen look(vdl::DriveThread& thread) {
    SharedVariables& variables = host->variables();
    Seen seen{};
    seen.lba = variables.u64("LBA");
    seen.blocks = variables.u32("XferLength");
    seen.bound = variables.u32("AtomicBound");
    seen.lastTag = variables.u32("LastTagID");
    seen.status = variables.u32("LastStatusByte");
    seen.readValid = variables.u32("ReadDataIsValid");
    seen.skipGen = variables.u32("SkipGen");
    seen.epo = variables.u32("EPO");
    seen.senseBytes = variables.buffer("LastErrSenseData").size;
    seen.readData = variables.tagged("ReadDataPtr[TagID]").platform().getData(seen.lastTag, &seen.readBytes);
    seen.conditions = thread.conditions;
    seen.nextTag = thread.freeTags->peekNextFreeTag();
    return seen;
  }

  /// One step in which the agent does `act` and returns 0.
  Seen stepWith(const std::function<void(vdl::DriveThread&)>& act) {
    Seen seen{};
    agent.onExecute = [&](vdl::DriveThread& thread) {
      seen = look(thread);
      FakeAgent::apply(thread, 0);
      act(thread);
      return 0;
    };
    EXPECT_EQ(loop().step(), 0);
    return seen;
  }
  Seen idle() {
    return stepWith([](vdl::DriveThread&) {});
  }
  Seen issue(CommandKind kind) {
    return stepWith([this, kind](vdl::DriveThread& thread) { prepare(thread, kind); });
  }

  /// What an agent does to have a command issued at the published range.
  void prepare(vdl::DriveThread& thread, CommandKind kind) {
    const bool e2e = (thread.conditions & ConditionSet::e2eBit) != 0;
    const uint64_t unit = host->sectorBytes() + (e2e ? 8U : 0U);
    const uint32_t blocks = host->variables().u32("XferLength");
    const uint32_t tag = thread.freeTags->peekNextFreeTag();
    if (kind != CommandKind::read && kind != CommandKind::trim && kind != CommandKind::syncCache) {
      host->variables()
          .buffer("WriteData")
          .view(writeMemory.at(tag).data(), kind == CommandKind::writeSame ? unit : unit * blocks);
    }
    FakeAgent::apply(thread, ConditionSet::bitOf(kind));
  }

  std::string tagBytes(const char* name, uint32_t tag) {
    uint64_t size = 0;
    const uint8_t* data = host->variables().tagged(name).platform().getData(tag, &size);
    return data == nullptr ? std::string() : std::string(data, data + size);
  }

  FakeAgent agent;
  vdl::AgentTable table{};
  FakeDrive drive;
  CountingLbaAgent lbaAgent;
  DriveCounters counters;
  ManualClock clock;
  StepSettings settings;
  uint32_t protectionBytes = 0;
  std::unique_ptr<DriveThreadHost> host;
  std::vector<std::vector<uint8_t>> writeMemory;
  std::unique_ptr<StepLoop> loop_;
};

}  // namespace corvane::host::testing
