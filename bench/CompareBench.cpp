// Judging finished reads: finding what is expected of each block, comparing the bytes, ending the read in the table.

#include <benchmark/benchmark.h>
#include <time.h>

#include <algorithm>
#include <cstring>
#include <vector>

#include "Compare.h"
#include "JudgeInPlace.h"
#include "WriteData.h"
#include "bench/AllocationCounter.h"
#include "bench/BenchedAgent.h"

namespace corvane::bench {
namespace {

/// More than the caches of the processor hold beside everything else, so that a sector picked at random comes from
/// memory.
constexpr uint64_t poolBytes = uint64_t{32} << 20;
constexpr uint32_t blocksInABatch = 4096;

struct Read {
  uint64_t lba = 0;
  uint64_t id = 0;
  const uint8_t* source = nullptr;  ///< sectors of the pool that it was written with
  std::vector<uint8_t> bytes;
};

/// A batch of good reads that wait for their compare.
class Reads {
 public:
  Reads(BenchedAgent& agent, uint32_t blocks, uint32_t blockSize)
      : step_(agent.step()), blocks_(blocks), blockSize_(blockSize), reads_(std::max(blocksInABatch / blocks, 1U)) {}

  uint64_t count() const { return reads_.size(); }

  /// Writes new blocks, and copies them to where a host would have put what it read.
  void prepare() {
    vdl::AtomicHash& table = step_.data.atomicHash;
    const uint64_t size = uint64_t{blocks_} * blockSize_;
    for (uint64_t i = 0; i < reads_.size(); ++i) {
      Read& read = reads_[i];
      const uint64_t write = ++id_;
      const vdl::BlockNum bucket = vdl::agent::chooseBucket(step_, blocks_);
      read.lba = i * blocks_;
      read.id = ++id_;
      read.source = step_.data.buckets + uint64_t{bucket} * blockSize_;
      vdl::agent::assembleWriteData(step_, {0, read.lba, write, bucket, blocks_, false, true});
      read.bytes.assign(step_.data.writeData->data, step_.data.writeData->data + size);
      for (uint32_t k = 0; k < blocks_; ++k) {
        table.writeIssued(write, read.lba + k, bucket + k, {true, write, read.lba + k});
        table.writeFinished(write, read.lba + k);
        table.readIssued(read.id, read.lba + k, true);
      }
    }
  }

  /// Shows a read to the agent as a view, as the host's memory is.
  void publish(Read& read) {
    auto& data = step_.data;
    if (data.spareReads.empty()) {
      data.spareReads.emplace_back();
    }
    data.comparableReads.splice(data.comparableReads.end(), data.spareReads, data.spareReads.begin());
    vdl::agent::ComparableReadData& kept = data.comparableReads.back();
    kept.cmdId = read.id;
    kept.lba = read.lba;
    kept.xferLength = blocks_;
    kept.blockCount = blocks_;
    kept.view(read.bytes.data(), read.bytes.size());
  }

  bool compare() {
    for (Read& read : reads_) {
      publish(read);
      if (vdl::agent::doCompares(step_) != 0) {
        return false;
      }
    }
    return true;
  }

  /// Only finds out whether the reads are right; they go on waiting.
  bool look() {
    for (Read& read : reads_) {
      publish(read);
      if (!vdl::agent::rightInPlace(step_, step_.data.comparableReads.back())) {
        return false;
      }
      step_.data.spareReads.splice(step_.data.spareReads.begin(), step_.data.comparableReads);
    }
    return true;
  }

  /// The table's part of it: what is expected of each block.
  bool ask() {
    for (const Read& read : reads_) {
      for (uint32_t k = 0; k < blocks_; ++k) {
        const vdl::Event* event = step_.data.atomicHash.awaitedEvent(read.id, read.lba + k);
        if (event == nullptr || event->isTransparent()) {
          return false;
        }
      }
    }
    return true;
  }

  /// The least that any compare must do: look at the same bytes once. What the stamp covers differs, so it is left out.
  bool floor() {
    constexpr uint64_t stamp = 32;
    for (const Read& read : reads_) {
      for (uint32_t k = 0; k < blocks_; ++k) {
        const uint64_t offset = uint64_t{k} * blockSize_ + stamp;
        if (std::memcmp(read.bytes.data() + offset, read.source + offset, blockSize_ - stamp) != 0) {
          return false;
        }
      }
    }
    return true;
  }

 private:
  vdl::agent::Step step_;
  uint32_t blocks_;
  uint32_t blockSize_;
  std::vector<Read> reads_;
  uint64_t id_ = 1'000'000;
};

/// Seconds of this thread's own time: a batch is long enough for others to come between.
double threadSeconds() {
  timespec now{};
  clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
  return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) * 1e-9;
}

/// Takes the caches away from what was just written.
void flushCaches() {
  static std::vector<uint8_t> other(poolBytes * 2);
  for (uint64_t i = 0; i < other.size(); i += 64) {
    ++other[i];
  }
  benchmark::ClobberMemory();
}

/// Arguments: blocks of a read, bytes of a block. An item is a block.
void run(benchmark::State& state, bool (Reads::*work)()) {
  const auto blocks = static_cast<uint32_t>(state.range(0));
  const auto blockSize = static_cast<uint32_t>(state.range(1));
  BenchedAgent agent({.blockSize = blockSize,
                      .queueDepth = 1,
                      .xferBlocks = blocks,
                      .rangeBlocks = 8192,
                      .buckets = static_cast<uint32_t>(poolBytes / blockSize)});
  agent.cycle();
  Reads reads(agent, blocks, blockSize);
  uint64_t counted = 0;
  double fastest = 1e9;
  for (auto _ : state) {
    reads.prepare();
    flushCaches();
    // What the table costs when no cache holds it is another bench's.
    reads.ask();
    const uint64_t before = allocations();
    const double began = threadSeconds();
    const bool right = (reads.*work)();
    const double spent = threadSeconds() - began;
    state.SetIterationTime(spent);
    if (!right) {
      state.SkipWithError("a good read miscompared");
      break;
    }
    counted += allocations() - before;
    fastest = std::min(fastest, spent);
  }
  const double batch = static_cast<double>(reads.count()) * blocks;
  state.SetItemsProcessed(static_cast<int64_t>(static_cast<double>(state.iterations()) * batch));
  state.counters["fastest ns/block"] = fastest * 1e9 / batch;
  state.counters["allocations/block"] =
      static_cast<double>(counted) / (static_cast<double>(state.iterations()) * batch);
}

void compareReads(benchmark::State& state) { run(state, &Reads::compare); }
void askTheTable(benchmark::State& state) { run(state, &Reads::ask); }
void lookInPlace(benchmark::State& state) { run(state, &Reads::look); }
void memcmpOfTheSameSectors(benchmark::State& state) { run(state, &Reads::floor); }

void everySize(benchmark::internal::Benchmark* bench) {
  bench->ArgNames({"blocks", "blockSize"})->ArgsProduct({{1, 8, 256}, {512, 4096}})->UseManualTime()->Iterations(25);
}

BENCHMARK(memcmpOfTheSameSectors)->Apply(everySize);
BENCHMARK(askTheTable)->Apply(everySize);
BENCHMARK(lookInPlace)->Apply(everySize);
BENCHMARK(compareReads)->Apply(everySize);

}  // namespace
}  // namespace corvane::bench

BENCHMARK_MAIN();
