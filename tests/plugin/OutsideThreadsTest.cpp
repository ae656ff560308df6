// What other threads may do to a drive while its own is inside the agent: fill its queues of ranges, write to its log;
// and what the agents of several drives share.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <barrier>
#include <condition_variable>
#include <deque>
#include <map>
#include <mutex>
#include <optional>
#include <set>
#include <sstream>
#include <thread>
#include <utility>
#include <vector>

#include "BlockHash.h"
#include "support/SchedulingBench.h"
#include "support_model/CapturedStderr.h"
#include "vdl/Status.h"

namespace benchtest {
namespace {

using vdl::LBARange;
using vdl::TraceType;

constexpr int writers = 4;

/// Which ranges stood in the trace, in their order.
struct Absorbed {
  std::vector<LBARange> resets;
  std::vector<LBARange> invalid;

  void take(SchedulingBench& bench) {
    for (const Traced& entry : bench.takeTrace()) {
      if (entry.type == TraceType::ZoneReset) {
        resets.push_back({entry.lba, entry.cmdId});
      } else if (entry.type == TraceType::InvalidateRange) {
        invalid.push_back({entry.lba, entry.cmdId});
      }
    }
  }
};

/// Writers of a queue, who say who they are and how many they have pushed by the range: [writer * 2^32 + n, + 1).
class Writers {
 public:
  Writers(vdl::LBARangeQueue& queue, uint64_t ranges) {
    for (uint64_t writer = 0; writer < writers; ++writer) {
      threads_.emplace_back([&queue, writer, ranges] {
        for (uint64_t n = 0; n < ranges; ++n) {
          queue.push(range(writer, n));
        }
      });
    }
  }
  void join() { threads_.clear(); }

  /// Each writer's ranges, each once and in the writer's order.
  static void expectAll(const std::vector<LBARange>& absorbed, uint64_t ranges) {
    std::map<uint64_t, uint64_t> next;
    for (const LBARange& one : absorbed) {
      const uint64_t writer = one.first >> 32;
      const LBARange wanted = range(writer, next[writer]++);
      ASSERT_EQ(one.first, wanted.first) << "writer " << writer;
      ASSERT_EQ(one.end, wanted.end) << "writer " << writer;
    }
    EXPECT_EQ(absorbed.size(), writers * ranges);
  }

 private:
  static LBARange range(uint64_t writer, uint64_t n) { return {(writer << 32) + 2 * n, (writer << 32) + 2 * n + 1}; }

  std::vector<std::jthread> threads_;
};

TEST(OutsideThreads, EveryRangeThatTheyPushIsAbsorbedOnceAndInOrder) {
  constexpr uint64_t ranges = 400;
  SchedulingBench bench;
  bench.config().traceDepth = 2 * writers * ranges;  // one step may absorb them all
  bench.startWithRangeQueues();
  bench.takeTrace();
  Absorbed absorbed;
  std::atomic<bool> pushed{false};
  std::jthread everybody([&] {
    Writers resets(bench.variables().ranges("CSZoneReset"), ranges);
    Writers invalid(bench.variables().ranges("CVNInvalidateRanges"), ranges);
    resets.join();
    invalid.join();
    pushed = true;
  });
  // The accessors of variables belong to the drive's thread, so they are done before it goes on.
  bool last = false;
  do {
    last = pushed;
    ASSERT_EQ(bench.idle(), 0);
    absorbed.take(bench);
  } while (!last);
  Writers::expectAll(absorbed.resets, ranges);
  Writers::expectAll(absorbed.invalid, ranges);
}

/// Zones that one thread has done with and another one resets.
class Handover {
 public:
  void give(LBARange zone) {
    {
      const std::lock_guard lock(mutex_);
      zones_.push_back(zone);
    }
    given_.notify_one();
  }
  void noMore() {
    {
      const std::lock_guard lock(mutex_);
      over_ = true;
    }
    given_.notify_all();
  }
  /// Waits for one; nothing: no more come.
  std::optional<LBARange> take() {
    std::unique_lock lock(mutex_);
    given_.wait(lock, [this] { return over_ || !zones_.empty(); });
    if (zones_.empty()) {
      return std::nullopt;
    }
    const LBARange zone = zones_.front();
    zones_.pop_front();
    return zone;
  }

 private:
  std::mutex mutex_;
  std::condition_variable given_;
  std::deque<LBARange> zones_;
  bool over_ = false;
};

/// A drive that writes zones, hands them to other threads, which reset them, and goes on writing meanwhile.
class ZonedDrive {
 public:
  static constexpr uint64_t zoneBlocks = 16;
  static constexpr uint64_t zones = 60;
  static constexpr uint32_t writesOfZone = 3;  ///< finished ones
  static constexpr uint32_t blocksOfWrite = 4;

  void run() {
    bench_.startWithRangeQueues();
    bench_.takeTrace();
    vdl::LBARangeQueue& queue = bench_.variables().ranges("CSZoneReset");
    {
      std::vector<std::jthread> others;
      others.reserve(writers);
      for (int i = 0; i < writers; ++i) {
        others.emplace_back([&] {
          while (const std::optional<LBARange> zone = handover_.take()) {
            queue.push(*zone);
          }
        });
      }
      for (uint64_t zone = 0; zone < zones; ++zone) {
        writeZone(zone);
      }
      handover_.noMore();
    }
    EXPECT_EQ(bench_.idle(), 0);
    absorbed_.take(bench_);
  }

  /// Every second zone was reset: of these nothing is left to be read, and of the others everything is.
  void expectBooksRight() {
    EXPECT_EQ(absorbed_.resets.size(), zones / 2);
    std::set<uint64_t> reset;
    for (const LBARange& zone : absorbed_.resets) {
      EXPECT_TRUE(reset.insert(zone.first).second) << "zone at " << zone.first << " was absorbed twice";
    }
    for (uint64_t zone = 0; zone < zones; ++zone) {
      const uint64_t first = firstOf(zone);
      EXPECT_EQ(reset.contains(first), zone % 2 == 0) << zone;
      for (uint32_t block = 0; block < writesOfZone * blocksOfWrite; ++block) {
        EXPECT_EQ(bench_.refCount(first + block), zone % 2) << "zone " << zone << ", block " << block;
      }
    }
    EXPECT_EQ(bench_.data().writeFinished.size(), zones / 2 * writesOfZone);
    EXPECT_EQ(bench_.table().records().size(), zones / 2 * writesOfZone * blocksOfWrite);
    EXPECT_THAT(bench_.takeLog(), ::testing::IsEmpty());
  }

 private:
  // A reset gives up the block behind it too, so no zone ends where another one begins.
  static uint64_t firstOf(uint64_t zone) { return zone * (zoneBlocks + 1); }

  void writeZone(uint64_t zone) {
    for (uint32_t write = 0; write < writesOfZone; ++write) {
      bench_.finishedWrite(firstOf(zone) + uint64_t{write} * blocksOfWrite, blocksOfWrite, write);
      absorbed_.take(bench_);
    }
    if (zone % 2 == 0) {
      handover_.give({firstOf(zone), firstOf(zone) + zoneBlocks});
    }
  }

  SchedulingBench bench_;
  Handover handover_;
  Absorbed absorbed_;
};

size_t timesAsLine(const std::string& text, const std::string& wanted) {
  size_t times = 0;
  std::istringstream stream(text);
  for (std::string line; std::getline(stream, line);) {
    if (line == wanted) {
      ++times;
    }
  }
  return times;
}

TEST(OutsideThreads, ZonesThatTheyResetLeaveNoReferenceAndTakeNoneOfOthers) {
  constexpr size_t drives = 8;
  std::vector<ZonedDrive> all(drives);
  ::testing::internal::CaptureStdout();
  {
    std::vector<std::jthread> threads;
    threads.reserve(drives);
    for (ZonedDrive& drive : all) {
      threads.emplace_back([&drive] { drive.run(); });
    }
  }
  std::fflush(stdout);
  const std::string said = ::testing::internal::GetCapturedStdout();
  for (ZonedDrive& drive : all) {
    drive.expectBooksRight();
  }
  const std::string line = "<W> Clearing out Read LBA Range 0x00000000000003B8 thru 0x00000000000003BC";
  EXPECT_EQ(timesAsLine(said, line), drives) << "the first write of zone 56, of each drive, in a line of its own";
  EXPECT_EQ(std::count(said.begin(), said.end(), '\n'),
            static_cast<std::ptrdiff_t>(drives * ZonedDrive::zones / 2 * ZonedDrive::writesOfZone));
}

TEST(OutsideThreads, WhatTheyLogForADriveStandsBetweenItsOwnLines) {
  constexpr int lines = 100;
  SchedulingBench bench;
  bench.start();
  bench.takeLog();
  vdl::EventLog& log = *bench.thread().eventLog;
  std::barrier together(writers + 1);
  {
    std::vector<std::jthread> others;
    others.reserve(writers);
    for (int writer = 0; writer < writers; ++writer) {
      others.emplace_back([&, writer] {
        together.arrive_and_wait();
        for (int line = 0; line < lines; ++line) {
          log.logf(0, "writer %d line %d", writer, line);
        }
      });
    }
    together.arrive_and_wait();
    for (int line = 0; line < lines; ++line) {
      bench.trace().traceWriteIssued(100, 1, 1, 1, 0);  // and nobody keeps a record of it
      EXPECT_EQ(bench.report(1, 0), vdl::status::noRecord);
    }
  }
  std::map<std::string, int> next;
  int own = 0;
  for (const LogLine& line : bench.takeLog()) {
    if (line.level == 0) {
      const std::string writer = line.text.substr(0, line.text.find(" line"));
      EXPECT_EQ(line.text, writer + " line " + std::to_string(next[writer]++));
    } else {
      ++own;
    }
  }
  EXPECT_EQ(next.size(), size_t{writers});
  for (const auto& [writer, count] : next) {
    EXPECT_EQ(count, lines) << writer;
  }
  EXPECT_GE(own, lines);
}

TEST(SeveralTables, ComplainOfTheirErrorsInWholeLines) {
  constexpr int tables = 8;
  constexpr int complaints = 100;
  modeltest::CapturedStderr said;
  {
    std::barrier together(tables);
    std::vector<std::jthread> threads;
    threads.reserve(tables);
    for (int i = 0; i < tables; ++i) {
      threads.emplace_back([&together] {
        vdl::AtomicHash table;
        together.arrive_and_wait();
        for (int complaint = 0; complaint < complaints; ++complaint) {
          table.readFinished(0xBEEF, 0xC0FFEE, false);
        }
      });
    }
  }
  std::istringstream text(said.take());
  int whole = 0;
  for (std::string line; std::getline(text, line); ++whole) {
    ASSERT_THAT(line, ::testing::MatchesRegex("<E> .* lba:c0ffee cmd_id:beef")) << "line " << whole;
  }
  EXPECT_EQ(whole, tables * complaints);
}

TEST(SeveralTables, HashTheirFirstBlocksAtOnce) {
  constexpr int threads = 8;
  constexpr uint32_t blocks = 9;
  const Bytes data(512 * blocks, 0x5A);
  const uint64_t expected = vdl::blockHash(data.data(), data.data() + 512);
  std::barrier together(threads);
  std::vector<std::jthread> all;
  all.reserve(threads);
  for (int i = 0; i < threads; ++i) {
    all.emplace_back([&] {
      uint64_t hashes[blocks] = {};
      together.arrive_and_wait();
      vdl::blockHashes(data.data(), 512, 512, blocks, hashes);
      EXPECT_THAT(hashes, ::testing::Each(expected));
    });
  }
}

}  // namespace
}  // namespace benchtest
