// The hash of a block, which stands for content that no bucket explains: one after the other, and several at once by
// every way that this processor has.

#include <benchmark/benchmark.h>

#include <string>
#include <vector>

#include "BlockHash.h"
#include "host/base/Random.h"

namespace corvane::bench {
namespace {

std::vector<uint8_t> randomBytes(uint64_t count) {
  std::vector<uint8_t> bytes(count);
  host::Random random(1);
  for (uint8_t& byte : bytes) {
    byte = static_cast<uint8_t>(random.next());
  }
  return bytes;
}

void oneByOne(const uint8_t* first, uint64_t stride, uint64_t bytes, uint32_t count, uint64_t* out) {
  for (uint32_t i = 0; i < count; ++i) {
    out[i] = vdl::blockHash(first + i * stride, first + i * stride + bytes);
  }
}

/// Arguments: blocks at once, bytes of a block. An item is a block.
void hashes(benchmark::State& state, vdl::block_hash::Function* function) {
  const auto blocks = static_cast<uint32_t>(state.range(0));
  const auto bytes = static_cast<uint64_t>(state.range(1));
  const std::vector<uint8_t> data = randomBytes(blocks * bytes);
  std::vector<uint64_t> out(blocks);
  for (auto _ : state) {
    function(data.data(), bytes, bytes, blocks, out.data());
    benchmark::DoNotOptimize(out.data());
    benchmark::ClobberMemory();
  }
  state.SetItemsProcessed(state.iterations() * blocks);
  state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(blocks * bytes));
  state.counters["time/block"] = benchmark::Counter(static_cast<double>(state.iterations()) * blocks,
                                                    benchmark::Counter::kIsRate | benchmark::Counter::kInvert);
}

void registerWay(const std::string& name, vdl::block_hash::Function* function) {
  benchmark::RegisterBenchmark(("hashes/" + name).c_str(), hashes, function)
      ->ArgNames({"blocks", "bytes"})
      ->ArgsProduct({{1, 4, 8, 64}, {512, 4096}});
}

}  // namespace
}  // namespace corvane::bench

int main(int argc, char** argv) {
  using corvane::bench::registerWay;
  registerWay("oneByOne", corvane::bench::oneByOne);
  registerWay("portable", vdl::block_hash::hashesPortable);
#if defined(__x86_64__)
  if (vdl::block_hash::hasAvx2()) {
    registerWay("avx2", vdl::block_hash::hashesAvx2);
  }
  if (vdl::block_hash::hasAvx512()) {
    registerWay("avx512", vdl::block_hash::hashesAvx512);
  }
#endif
  registerWay("fastest", vdl::blockHashes);
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) {
    return 1;
  }
  benchmark::RunSpecifiedBenchmarks();
  return 0;
}
