// Other agents' threads fill the range queues of eight drives while these run: each range must come to the drive's
// agent once, in its writer's order, and the test must find nothing because of it.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cstdio>
#include <map>
#include <memory>
#include <mutex>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "host/run/PluginLoader.h"
#include "tests/e2e/EndToEnd.h"
#include "vdl/LBARangeQueue.h"

namespace corvane::host::e2e {
namespace {

constexpr size_t drives = 8;
constexpr uint64_t rangesOfWriter = 120;
constexpr uint64_t driveBlocks = (8U << 20) / 512;
constexpr uint64_t testedBlocks = driveBlocks / 2;

/// A thread that pushes ranges to one queue while their drive runs. The ranges are two blocks long and rise; where they
/// begin tells them from those of others.
///
/// It is neither far ahead of the drive's steps nor behind them, so that it is at work all the time. That is kept up by
/// relaxed counts: others would put the two threads in order, and the sanitizer could not see that nothing else does.
class Writer {
 public:
  static constexpr uint64_t stride = 16;

  Writer(vdl::LBARangeQueue& queue, uint64_t firstLba)
      : firstLba_(firstLba), thread_([this, &queue] {
          for (uint64_t n = 0; n < rangesOfWriter; ++n) {
            while (n > steps_.load(std::memory_order_relaxed) / stepsOfRange + lead) {
              std::this_thread::yield();
            }
            queue.push(range(n));
            pushed_.store(n + 1, std::memory_order_relaxed);
          }
        }) {}

  /// The drive is about to do another step; it waits for a writer that is behind.
  void beforeStep() {
    const uint64_t steps = steps_.fetch_add(1, std::memory_order_relaxed) + 1;
    while (pushed_.load(std::memory_order_relaxed) < std::min(steps / stepsOfRange, rangesOfWriter)) {
      std::this_thread::yield();
    }
  }
  vdl::LBARange range(uint64_t n) const { return {firstLba_ + stride * n, firstLba_ + stride * n + 2}; }

 private:
  static constexpr uint64_t stepsOfRange = 8;
  static constexpr uint64_t lead = 8;

  const uint64_t firstLba_;
  std::atomic<uint64_t> steps_{0};
  std::atomic<uint64_t> pushed_{0};
  std::jthread thread_;
};

/// Who fills a drive's queues, and what is left in these when its test is over.
struct Queues {
  struct Filled {
    vdl::LBARangeQueue* queue = nullptr;
    std::vector<std::unique_ptr<Writer>> writers;
    std::vector<vdl::LBARange> left;
  };

  std::array<Filled, 2> all;  ///< reset zones, invalid ranges

  void beforeStep() {
    for (Filled& filled : all) {
      for (const auto& writer : filled.writers) {
        writer->beforeStep();
      }
    }
  }
  void end() {
    for (Filled& filled : all) {
      for (vdl::LBARange range; filled.queue->tryPop(range);) {
        filled.left.push_back(range);
      }
    }
  }
};

/// The built agent, but with other agents beside it: their threads begin with a drive's test and end with it.
///
/// An agent's callbacks know nothing of whose they are, so there is one at a time.
class AgentAmongOthers {
 public:
  AgentAmongOthers() : plugin_(agentPath()) {
    here = this;
    table_ = plugin_.table();
    table_.startTest = startTest;
    table_.execute = execute;
    table_.stopTest = stopTest;
  }
  ~AgentAmongOthers() { here = nullptr; }
  AgentAmongOthers(const AgentAmongOthers&) = delete;
  AgentAmongOthers& operator=(const AgentAmongOthers&) = delete;

  const vdl::AgentTable& table() const { return table_; }
  /// Of a drive by its display name, once its test is over.
  const Queues& queuesOf(const std::string& drive) { return queues_.at(drive); }

 private:
  static int startTest(vdl::DriveThread* drive, const void* config, void* data, int ignored) {
    const int status = here->plugin_.table().startTest(drive, config, data, ignored);
    here->beginWriters(*drive);
    return status;
  }
  static int execute(vdl::DriveThread* drive, const void* config, void* data) {
    current->beforeStep();
    return here->plugin_.table().execute(drive, config, data);
  }
  static int stopTest(vdl::DriveThread* drive, const void* config, void* data, int ignored) {
    current->end();
    return here->plugin_.table().stopTest(drive, config, data, ignored);
  }

  void beginWriters(vdl::DriveThread& drive) {
    {
      const std::lock_guard lock(mutex_);
      current = &queues_[drive.name];
    }
    auto& [resets, invalid] = current->all;
    int error = 0;
    resets.queue = drive.mapLBARangeQueue("CSZoneReset", 3, &error);
    invalid.queue = drive.mapLBARangeQueue("CVNInvalidateRanges", 3, &error);
    ASSERT_EQ(error, 0);
    for (const uint64_t at : {uint64_t{1}, uint64_t{5}}) {
      // A zone may be said to be reset whatever it holds; what is said to be invalid must be so, and nobody reads it.
      resets.writers.push_back(std::make_unique<Writer>(*resets.queue, at));
      invalid.writers.push_back(std::make_unique<Writer>(*invalid.queue, testedBlocks + at));
    }
  }

  static inline AgentAmongOthers* here = nullptr;
  static inline thread_local Queues* current = nullptr;

  AgentPlugin plugin_;
  vdl::AgentTable table_{};
  std::mutex mutex_;
  std::map<std::string, Queues> queues_;
};

/// The ranges of a writer that a report says the agent has absorbed. Those of the host begin elsewhere.
std::vector<vdl::LBARange> absorbed(const std::string& report, const std::string& event, const Writer& writer) {
  const uint64_t firstLba = writer.range(0).first;
  std::vector<vdl::LBARange> ranges;
  std::istringstream lines(report);
  for (std::string line; std::getline(lines, line);) {
    const size_t at = line.find(event + " ");
    vdl::LBARange range{};
    if (at != std::string::npos &&
        std::sscanf(line.c_str() + at + event.size(), " 0x%lx - 0x%lx", &range.first, &range.end) == 2 &&
        range.first >= firstLba && (range.first - firstLba) % Writer::stride == 0 && range.end == range.first + 2) {
      ranges.push_back(range);
    }
  }
  return ranges;
}

/// Of each writer all that it pushed, once and in its order.
void expectAbsorbed(const Queues::Filled& queue, const std::string& report, const std::string& event) {
  EXPECT_TRUE(queue.left.empty()) << event << ": " << queue.left.size() << " left";
  for (const auto& writer : queue.writers) {
    const std::vector<vdl::LBARange> seen = absorbed(report, event, *writer);
    ASSERT_EQ(seen.size(), rangesOfWriter) << event;
    for (uint64_t n = 0; n < rangesOfWriter; ++n) {
      ASSERT_EQ(seen[n].first, writer->range(n).first) << event << " number " << n;
    }
  }
}

TEST(OutsideWriters, EveryRangeThatTheyPushToEightDrivesIsAbsorbedOnce) {
  const Workspace workspace;
  TestDefinition test = prepared({}, workspace);
  test.driveAddresses.assign(drives, "sim:8m,zones=1m");
  test.endLba = testedBlocks;
  test.mix = {.write = 2, .writeSame = 1, .trim = 1, .read = 1};
  test.commandLimit = 1500;
  test.zoneResetEveryCommands = 200;
  test.invalidateEveryCommands = 100;
  test.agentOptions = {
      {"Min Queue Size", "100"}, {"Max Queue Size", "200"}, {"Trace Depth", "4000"}, {"Always Dump Sequence", "true"}};
  AgentAmongOthers agents;
  const RunResult result = runTest(test, {}, &agents.table());
  EXPECT_EQ(result.status, RunStatus::clean) << agentLines(result);
  ASSERT_EQ(result.drives.size(), drives);
  for (const DriveResult& drive : result.drives) {
    SCOPED_TRACE(drive.name);
    EXPECT_GE(drive.totals.commandsIssued(), test.commandLimit);
    EXPECT_GT(drive.totals.blocksCompared, 0U);
    ASSERT_EQ(drive.messages.reports.size(), 1U);
    const std::string report = contentOf(drive.messages.reports[0]);
    const auto& [resets, invalid] = agents.queuesOf(drive.name).all;
    expectAbsorbed(resets, report, "Zone Reset");
    expectAbsorbed(invalid, report, "Invalidate Range");
  }
}

}  // namespace
}  // namespace corvane::host::e2e
