// The life of a block in the expected-state table: written, finished, read, compared, forgotten.

#include <benchmark/benchmark.h>

#include <random>
#include <vector>

#include "AtomicHash.h"
#include "bench/AllocationCounter.h"

namespace corvane::bench {
namespace {

void issueWrite(vdl::AtomicHash& table, uint64_t id, const vdl::BlockRun& run) {
  table.writeIssued(id, run, {7, {true, id, run.first}, true, true});
}

/// Arguments: blocks of a command, blocks that the table holds beside it. A whole life at once, so everything that a
/// command touches is in the cache after its first step.
void blockLife(benchmark::State& state) {
  const auto blocks = static_cast<uint64_t>(state.range(0));
  const auto others = static_cast<uint64_t>(state.range(1));
  vdl::AtomicHash table;
  uint64_t id = 1;
  for (uint64_t lba = 0; lba < others; ++lba) {
    table.writeIssued(id, 10 * lba, 1, {true, id, 10 * lba});
  }
  const uint64_t allocationsBefore = allocations();
  uint64_t first = 5;
  for (auto _ : state) {
    const uint64_t write = ++id;
    const uint64_t read = ++id;
    const vdl::BlockRun run{first, first + blocks};
    issueWrite(table, write, run);
    table.writeFinished(write, run);
    table.readIssued(read, run, true);
    benchmark::DoNotOptimize(table.readFinished(read, run, false));
    first = (first + 7919) % (10 * others + 1000);
  }
  const auto lives = static_cast<double>(state.iterations()) * static_cast<double>(blocks);
  state.SetItemsProcessed(static_cast<int64_t>(lives));
  state.counters["allocations/block"] = static_cast<double>(allocations() - allocationsBefore) / lives;
}

BENCHMARK(blockLife)
    ->ArgNames({"blocks", "others"})
    ->Args({1, 0})
    ->Args({8, 0})
    ->Args({64, 0})
    ->Args({8, 25'000})
    ->Args({8, 250'000});

/// The commands of a test: each at an LBA of its own choice, finished some commands later, read back when all that
/// were written before it have been, and its read finished some commands after that.
///
/// `Table` has write, finishWrite, read and finishRead, each of an id and a run.
template <typename Table>
class Traffic {
 public:
  static constexpr std::size_t inFlight = 32;

  /// @param range LBAs that the commands are drawn from
  Traffic(Table& table, uint64_t blocks, uint64_t outstanding, uint64_t range)
      : table_(table), blocks_(blocks), slots_(range / blocks), commands_(outstanding / blocks + inFlight) {
    for (std::size_t i = 0; i < commands_.size(); ++i) {
      write();
    }
    for (std::size_t i = 0; i < commands_.size(); ++i) {
      step();
    }
  }

  /// One command goes through each station of its life; the table holds as much as before.
  void step() {
    const uint64_t oldest = written_ - commands_.size();
    table_.read(oldest, runOf(oldest));
    if (oldest >= inFlight) {
      table_.finishRead(oldest - inFlight, finishing_[oldest % inFlight]);
    }
    finishing_[oldest % inFlight] = runOf(oldest);
    write();
  }

 private:
  vdl::BlockRun runOf(uint64_t command) const {
    const uint64_t first = commands_[command % commands_.size()];
    return {first, first + blocks_};
  }

  void write() {
    // A multiple of the length, so that no command overlaps a part of another.
    commands_[written_ % commands_.size()] = rng_() % slots_ * blocks_;
    table_.write(written_, runOf(written_));
    if (written_ >= inFlight) {
      table_.finishWrite(written_ - inFlight, runOf(written_ - inFlight));
    }
    ++written_;
  }

  Table& table_;
  std::minstd_rand rng_;
  uint64_t blocks_;
  uint64_t slots_;
  std::vector<uint64_t> commands_;  ///< LBAs of the commands that are written, a ring
  uint64_t written_ = 0;
  vdl::BlockRun finishing_[inFlight] = {};
};

/// Ids that ascend as an agent's do: the read's is above all writes' so far.
struct Expectations {
  vdl::AtomicHash table;
  void write(uint64_t command, const vdl::BlockRun& run) { issueWrite(table, 2 * command + 2, run); }
  void finishWrite(uint64_t command, const vdl::BlockRun& run) { table.writeFinished(2 * command + 2, run); }
  void read(uint64_t command, const vdl::BlockRun& run) { table.readIssued(2 * command + 3, run, true); }
  void finishRead(uint64_t command, const vdl::BlockRun& run) {
    benchmark::DoNotOptimize(table.readFinished(2 * command + 3, run, false));
  }
};

/// The least that could remember what was written: one entry for each LBA, the last write only, no check of anything.
struct PlainArray {
  struct Entry {
    uint64_t cmdId;
    uint32_t bucket;
    uint32_t references;
  };
  explicit PlainArray(uint64_t range) : entries(range) {}
  std::vector<Entry> entries;

  void write(uint64_t command, const vdl::BlockRun& run) {
    for (uint64_t lba = run.first; lba < run.end; ++lba) {
      entries[lba] = {command, 7, entries[lba].references + 1};
    }
  }
  void finishWrite(uint64_t, const vdl::BlockRun&) {}
  void read(uint64_t, const vdl::BlockRun&) {}
  void finishRead(uint64_t, const vdl::BlockRun& run) {
    for (uint64_t lba = run.first; lba < run.end; ++lba) {
      --entries[lba].references;
    }
  }
};

void countLives(benchmark::State& state, uint64_t blocks, uint64_t allocationsMade) {
  const auto lives = static_cast<double>(state.iterations()) * static_cast<double>(blocks);
  state.SetItemsProcessed(static_cast<int64_t>(lives));
  state.counters["allocations/block"] = static_cast<double>(allocationsMade) / lives;
  state.counters["time/block"] = benchmark::Counter(lives, benchmark::Counter::kIsRate | benchmark::Counter::kInvert);
}

/// Arguments: blocks of a command, blocks outstanding, LBAs for each of them.
void outstanding(benchmark::State& state) {
  const auto blocks = static_cast<uint64_t>(state.range(0));
  const auto held = static_cast<uint64_t>(state.range(1));
  Expectations expectations;
  Traffic traffic(expectations, blocks, held, held * static_cast<uint64_t>(state.range(2)));
  const uint64_t allocationsBefore = allocations();
  for (auto _ : state) {
    traffic.step();
  }
  countLives(state, blocks, allocations() - allocationsBefore);
  state.counters["bytes/block"] = static_cast<double>(expectations.table.bytes()) / static_cast<double>(held);
}

void outstandingInAPlainArray(benchmark::State& state) {
  const auto blocks = static_cast<uint64_t>(state.range(0));
  const auto held = static_cast<uint64_t>(state.range(1));
  const uint64_t range = held * static_cast<uint64_t>(state.range(2));
  PlainArray array(range);
  Traffic traffic(array, blocks, held, range);
  const uint64_t allocationsBefore = allocations();
  for (auto _ : state) {
    traffic.step();
  }
  countLives(state, blocks, allocations() - allocationsBefore);
}

constexpr int64_t everywhere = 1000;

BENCHMARK(outstanding)
    ->ArgNames({"blocks", "outstanding", "lbas"})
    ->ArgsProduct({{1, 8, 256}, {4096, 100'000, 250'000, 1'000'000}, {4, everywhere}});
BENCHMARK(outstandingInAPlainArray)
    ->ArgNames({"blocks", "outstanding", "lbas"})
    ->ArgsProduct({{1, 8, 256}, {4096, 1'000'000}, {4}});

/// The copy of a read's histories that a compare judges.
void readContext(benchmark::State& state) {
  const auto blocks = static_cast<uint64_t>(state.range(0));
  vdl::AtomicHash table;
  for (uint64_t lba = 0; lba < blocks; ++lba) {
    table.writeIssued(1, lba, 7, {true, 1, lba});
    table.writeFinished(1, lba);
    table.readIssued(2, lba, true);
  }
  const uint64_t allocationsBefore = allocations();
  for (auto _ : state) {
    benchmark::DoNotOptimize(table.getContext(0, blocks, 2));
  }
  const auto copies = static_cast<double>(state.iterations()) * static_cast<double>(blocks);
  state.SetItemsProcessed(static_cast<int64_t>(copies));
  state.counters["allocations/block"] = static_cast<double>(allocations() - allocationsBefore) / copies;
}

BENCHMARK(readContext)->ArgName("blocks")->Arg(1)->Arg(8)->Arg(64);

/// The events at which a read waits, in place.
void awaitedEvents(benchmark::State& state) {
  const auto blocks = static_cast<uint64_t>(state.range(0));
  const vdl::BlockRun run{5, 5 + blocks};
  vdl::AtomicHash table;
  issueWrite(table, 1, run);
  table.readIssued(2, run, true);
  for (auto _ : state) {
    vdl::AwaitedEvents events(table, 2, run);
    for (uint64_t i = 0; i < blocks; ++i) {
      benchmark::DoNotOptimize(events.next());
    }
  }
  state.SetItemsProcessed(static_cast<int64_t>(state.iterations()) * static_cast<int64_t>(blocks));
}

BENCHMARK(awaitedEvents)->ArgName("blocks")->Arg(1)->Arg(8)->Arg(256);

}  // namespace
}  // namespace corvane::bench

BENCHMARK_MAIN();
