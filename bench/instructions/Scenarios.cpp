// Fixed amounts of work between marks of callgrind's, so that their instructions can be counted: `run` beside this
// file does that. Outside of callgrind the program does the same work and counts nothing.
//
// For each scenario it prints a line of its name, the number of items between the marks and what an item is. Callgrind
// leaves a dump for each, which says the name.

#include <valgrind/callgrind.h>

#include <cstdint>
#include <cstdio>
#include <cstring>
#include <deque>
#include <exception>
#include <memory>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "AtomicHash.h"
#include "Compare.h"
#include "LazyHasher.h"
#include "WriteData.h"
#include "bench/BenchedAgent.h"
#include "host/base/Random.h"
#include "host/run/TestRun.h"

namespace corvane::bench {
namespace {

void startCounting() {
  CALLGRIND_ZERO_STATS;
  CALLGRIND_START_INSTRUMENTATION;
}

void stopCounting(const std::string& name, uint64_t items, const char* item) {
  CALLGRIND_STOP_INSTRUMENTATION;
  CALLGRIND_DUMP_STATS_AT(name.c_str());
  std::printf("%s %llu %s\n", name.c_str(), static_cast<unsigned long long>(items), item);
}

std::string withBlocks(const char* what, uint64_t blocks) { return std::string(what) + "-" + std::to_string(blocks); }

/// Work that is the same for every length of a command: fewer of the longer ones.
uint64_t commandsOf(uint64_t blocks) { return blocks == 1 ? 20'000 : blocks == 8 ? 5'000 : 400; }

/// Writes that await their read-back, as in the comparison with fio.
uint32_t outstandingWrites(uint64_t blocks) { return blocks == 1 ? 4096 : blocks == 8 ? 1024 : 128; }

BenchedAgent::Settings agentSettings(uint32_t blocks) {
  return {.queueDepth = 32,
          .minQueueSize = outstandingWrites(blocks) / 2,
          .maxQueueSize = outstandingWrites(blocks),
          .xferBlocks = blocks,
          .rangeBlocks = 262'144};
}

/// Written, finished, read, compared, forgotten, beside blocks that stay.
void blockLife(uint64_t blocks, uint64_t others) {
  vdl::AtomicHash table;
  uint64_t id = 1;
  for (uint64_t lba = 0; lba < others; ++lba) {
    table.writeIssued(id, 10 * lba, 1, {true, id, 10 * lba});
  }
  const uint64_t lives = commandsOf(blocks);
  uint64_t first = 5;
  startCounting();
  for (uint64_t i = 0; i < lives; ++i) {
    const uint64_t write = ++id;
    const uint64_t read = ++id;
    for (uint64_t lba = first; lba < first + blocks; ++lba) {
      table.writeIssued(write, lba, 7, {true, write, lba});
    }
    for (uint64_t lba = first; lba < first + blocks; ++lba) {
      table.writeFinished(write, lba);
    }
    for (uint64_t lba = first; lba < first + blocks; ++lba) {
      table.readIssued(read, lba, true);
    }
    for (uint64_t lba = first; lba < first + blocks; ++lba) {
      table.readFinished(read, lba, false);
    }
    first = (first + 7919) % (10 * others + 1000);
  }
  stopCounting(withBlocks("block-life", blocks) + "-beside-" + std::to_string(others), lives * blocks, "block");
}

void writeData(uint32_t blocks) {
  BenchedAgent agent(agentSettings(blocks));
  agent.cycle();  // makes the tags' buffers
  vdl::agent::Step step = agent.step();
  const uint64_t writes = commandsOf(blocks);
  uint64_t id = 1000;
  startCounting();
  for (uint64_t i = 0; i < writes; ++i, ++id) {
    const vdl::BlockNum bucket = vdl::agent::chooseBucket(step, blocks);
    vdl::agent::assembleWriteData(step, {0, id * 3, id, bucket, blocks, false, true});
  }
  stopCounting(withBlocks("write-data", blocks), writes * blocks, "block");
}

constexpr uint64_t readsInABatch = 64;

/// Puts a batch of good reads into the state in which they wait for their compare, with data of their own.
void prepareReads(vdl::agent::Step& step, uint32_t blocks, uint64_t& id) {
  vdl::AtomicHash& table = step.data.atomicHash;
  const uint64_t bytes = uint64_t{blocks} * vdl::agent::sectorBytes(step.thread);
  for (uint64_t i = 0; i < readsInABatch; ++i) {
    const uint64_t lba = i * blocks;
    const uint64_t write = ++id;
    const uint64_t read = ++id;
    const vdl::BlockNum bucket = vdl::agent::chooseBucket(step, blocks);
    vdl::agent::assembleWriteData(step, {0, lba, write, bucket, blocks, false, true});
    vdl::agent::ComparableReadData kept;
    for (uint32_t k = 0; k < blocks; ++k) {
      table.writeIssued(write, lba + k, bucket + k, {true, write, lba + k});
      table.writeFinished(write, lba + k);
      table.readIssued(read, lba + k, true);
    }
    kept.cmdId = read;
    kept.lba = lba;
    kept.xferLength = blocks;
    kept.blockCount = blocks;
    kept.data.reserve(bytes);
    std::memcpy(kept.data.data, step.data.writeData->data, bytes);
    kept.data.size = bytes;
    step.data.comparableReads.push_back(std::move(kept));
  }
}

void compare(uint32_t blocks) {
  BenchedAgent agent(agentSettings(blocks));
  agent.cycle();
  vdl::agent::Step step = agent.step();
  uint64_t id = 1'000'000;
  // The first batch lets pools grow.
  for (int batch = 0; batch < 2; ++batch) {
    step.data.spareReads.clear();
    prepareReads(step, blocks, id);
    if (batch == 1) {
      startCounting();
    }
    if (vdl::agent::doCompares(step) != 0) {
      throw std::runtime_error("a good read miscompared");
    }
  }
  stopCounting(withBlocks("compare", blocks), readsInABatch * blocks, "block");
}

void blockHash(uint64_t bytes) {
  std::vector<uint8_t> block(bytes);
  host::Random random(1);
  for (uint8_t& byte : block) {
    byte = static_cast<uint8_t>(random.next());
  }
  constexpr uint64_t hashes = 1000;
  uint64_t sum = 0;
  startCounting();
  for (uint64_t i = 0; i < hashes; ++i) {
    block[0] = static_cast<uint8_t>(i);
    sum |= vdl::blockHash(block.data(), block.data() + block.size());
  }
  stopCounting("block-hash-" + std::to_string(bytes), hashes, "block");
  if (sum == 0) {
    throw std::runtime_error("every hash is 0");  // keeps the loop, too
  }
}

/// The agent and the bench's own drive, which copies the data once.
void agentStep(uint32_t blocks) {
  BenchedAgent agent(agentSettings(blocks));
  while (agent.commands() < 4 * uint64_t{outstandingWrites(blocks)}) {
    agent.cycle();
  }
  const uint64_t before = agent.commands();
  startCounting();
  for (uint64_t i = 0; i < commandsOf(blocks); ++i) {
    agent.cycle();
  }
  stopCounting(withBlocks("agent-step", blocks), agent.commands() - before, "command");
}

/// An array that carries a command out when it is issued, answers in order, and puts the marks around some commands.
class CountingDrive final : public host::Drive {
 public:
  CountingDrive(std::string name, uint64_t first, uint64_t count)
      : name_(std::move(name)), first_(first), count_(count), medium_(geometry_.blocks * geometry_.blockSize) {}

  const host::DriveGeometry& geometry() const override { return geometry_; }
  const host::DriveCapabilities& capabilities() const override { return capabilities_; }
  std::string description() const override { return "memory"; }
  uint32_t maxOutstanding() const override { return 1024; }

  void submit(const host::DriveCommand& command) override {
    if (submitted_ == first_) {
      startCounting();
    } else if (submitted_ == first_ + count_) {
      stopCounting(name_, count_, "command");
    }
    ++submitted_;
    pollsInARow_ = 0;
    uint8_t* place = medium_.data() + command.lba * geometry_.blockSize;
    if (command.kind == host::CommandKind::read) {
      std::memcpy(command.data, place, command.dataBytes);
    } else {
      std::memcpy(place, command.data, command.dataBytes);
    }
    host::DriveCompletion done;
    done.tag = command.tag;
    done.id = command.id;
    done.bytesTransferred = command.dataBytes;
    answers_.push_back(done);
  }

  bool poll(host::DriveCompletion& out, bool wait) override {
    // Some stay outstanding, as with a real drive, until nothing else comes.
    if (answers_.empty() || (++pollsInARow_ < patience && answers_.size() < kept && !wait)) {
      return false;
    }
    out = answers_.front();
    answers_.pop_front();
    return true;
  }

  void reset() override { answers_.clear(); }
  void powerCycle() override { answers_.clear(); }

 private:
  static constexpr size_t kept = 16;
  static constexpr int patience = 3;

  const std::string name_;
  const uint64_t first_;
  const uint64_t count_;
  uint64_t submitted_ = 0;
  int pollsInARow_ = 0;
  const host::DriveGeometry geometry_{.blocks = 262'144};
  const host::DriveCapabilities capabilities_{};
  std::vector<uint8_t> medium_;
  std::deque<host::DriveCompletion> answers_;
};

/// Host and agent as `corvane run` puts them together, with its journal; in the drive's thread, alone.
void wholeTest(uint32_t blocks) {
  const uint64_t first = 4 * uint64_t{outstandingWrites(blocks)};
  const uint64_t count = commandsOf(blocks);
  host::TestDefinition test;
  test.pluginPath = CORVANE_AGENT_PATH;
  test.driveAddresses = {"sim:"};
  test.queueDepth = 32;
  test.minBlocks = blocks;
  test.maxBlocks = blocks;
  test.commandLimit = first + count + 1;
  test.journalDepth = 1U << 15;
  test.agentOptions = {{"Min Queue Size", std::to_string(outstandingWrites(blocks) / 2)},
                       {"Max Queue Size", std::to_string(outstandingWrites(blocks))}};
  host::RunSurroundings surroundings;
  surroundings.openDrive = [&](std::string_view, uint32_t, uint64_t, host::Overwriting) {
    return std::make_unique<CountingDrive>(withBlocks("whole-test", blocks), first, count);
  };
  host::TestRun run(test, nullptr, surroundings);
  const host::RunResult result = run.run();
  if (result.status != host::RunStatus::clean) {
    throw std::runtime_error("the test was not clean");
  }
}

void runAll() {
  blockLife(1, 0);
  blockLife(8, 0);
  blockLife(8, 25'000);
  blockHash(512);
  blockHash(4096);
  for (const uint32_t blocks : {1U, 8U, 256U}) {
    writeData(blocks);
    compare(blocks);
    agentStep(blocks);
    wholeTest(blocks);
  }
}

}  // namespace
}  // namespace corvane::bench

int main() {
  try {
    corvane::bench::runAll();
  } catch (const std::exception& error) {
    std::fprintf(stderr, "instructions: %s\n", error.what());
    return 1;
  }
  return 0;
}
