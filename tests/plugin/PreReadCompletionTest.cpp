#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <numeric>

#include "LazyHasher.h"
#include "support/CompletionBench.h"
#include "support_model/GuardedMemory.h"

namespace benchtest {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using vdl::TraceType;

constexpr uint64_t lba = 100;
constexpr uint32_t length = 4;

/// A pre-read of blocks 100 to 103 on tag 2, in flight.
struct PreReadCompletion : ::testing::Test {
  PreReadCompletion() { bench.start(); }

  void issue() {
    id = bench.atomicWrite(lba, length, 4, 2);
    ASSERT_EQ(bench.data().preReadSent.size(), 1U);
    bench.takeTrace();
    bench.takeLog();
  }

  /// Four blocks of different content.
  Bytes oldData() const {
    Bytes bytes(size_t{length} * bench.sectorBytes());
    for (size_t i = 0; i < bytes.size(); ++i) {
      bytes[i] = static_cast<uint8_t>(0x11 + i / bench.sectorBytes());
    }
    return bytes;
  }
  uint64_t hashOf(const Bytes& bytes, uint32_t block) const {
    const uint8_t* first = bytes.data() + size_t{block} * bench.sectorBytes();
    return vdl::blockHash(first, first + bench.sectorBytes());
  }
  void expectHash(uint64_t x, uint64_t hash) {
    const vdl::PeekResult state = bench.table().peek(x);
    EXPECT_EQ(state.status, 0) << x;
    EXPECT_EQ(state.block_type, vdl::BlockType::Hash) << x;
    EXPECT_EQ(state.hash, hash) << x;
  }

  CompletionBench bench;
  uint64_t id = 0;
};

TEST_F(PreReadCompletion, GoodPreReadKeepsAHashOfEveryBlock) {
  issue();
  const Bytes bytes = oldData();
  EXPECT_EQ(bench.completeRead(2, bytes), 0);
  for (uint32_t i = 0; i < length; ++i) {
    expectHash(lba + i, hashOf(bytes, i));
    EXPECT_EQ(bench.refCount(lba + i), 1U);
  }
  EXPECT_FALSE(bench.hasRecord(lba + length));
  EXPECT_THAT(bench.takeTrace(), ElementsAre(Traced{TraceType::ReadFinished, lba, length, id, 2}));
  EXPECT_THAT(bench.data().preReadSent, IsEmpty());
  ASSERT_EQ(bench.data().preReadFinished.size(), 1U);
  const auto& kept = bench.data().preReadFinished.front();
  EXPECT_EQ(kept.cmdId, id);
  EXPECT_EQ(kept.readCmdId, 0U);
  EXPECT_EQ(kept.lba, lba);
  EXPECT_EQ(kept.xferLength, length);
  EXPECT_EQ(kept.writeParam, 4U);
}

TEST_F(PreReadCompletion, FinishedPreReadIsConsumedByAnAtomicWriteElsewhere) {
  issue();
  EXPECT_EQ(bench.completeRead(2, oldData()), 0);
  const uint64_t atomic = bench.atomicWrite(300, 8, 8, 5);
  EXPECT_EQ(*bench.data().lba, lba);
  EXPECT_EQ(*bench.data().xferLength, length);
  EXPECT_THAT(bench.data().preReadFinished, IsEmpty());
  EXPECT_EQ(bench.data().writeSent.front().cmdId, atomic);
  EXPECT_EQ(bench.refCount(lba), 1U);
  EXPECT_EQ(bench.complete(5), 0);
}

TEST_F(PreReadCompletion, UnknownTagIsRefused) {
  issue();
  bench.data().preReadSent.front().tagId = 7;
  EXPECT_EQ(bench.completeRead(2, oldData()), -1200);
  EXPECT_THAT(bench.takeLog(),
              ElementsAre(LogLine{2, "recvPreRead(): couldn't find pre-read"}, bench.failure("execute", -1200)));
}

TEST_F(PreReadCompletion, AbortedPreReadLeavesNothingBehind) {
  issue();
  EXPECT_EQ(bench.completeRead(2, oldData(), CompletionBench::aborted), 0);
  EXPECT_THAT(bench.data().preReadSent, IsEmpty());
  EXPECT_THAT(bench.data().preReadFinished, IsEmpty());
  EXPECT_THAT(bench.data().writeSent, IsEmpty());
  EXPECT_TRUE(bench.table().records().empty());
  EXPECT_THAT(bench.takeTrace(), ElementsAre(Traced{TraceType::ReadAborted, lba, length, id, 2}));
}

TEST_F(PreReadCompletion, AbortedClaimedPreReadLeavesNoHash) {
  issue();
  const uint64_t atomic = bench.atomicWrite(300, 8, 8, 5);
  EXPECT_EQ(bench.data().preReadSent.front().readCmdId, atomic);
  bench.takeTrace();
  EXPECT_EQ(bench.completeRead(2, oldData(), CompletionBench::aborted), 0);
  EXPECT_THAT(bench.data().preReadSent, IsEmpty());
  EXPECT_THAT(bench.data().preReadFinished, IsEmpty());
  EXPECT_EQ(bench.takeTrace().back().type, TraceType::ReadAborted);
  EXPECT_EQ(bench.table().records().at(lba).events->next, nullptr);
}

TEST_F(PreReadCompletion, ClaimedPreReadPutsItsHashesBelowTheAtomicWrite) {
  issue();
  const uint64_t atomic = bench.atomicWrite(300, 8, 8, 5);
  const Bytes bytes = oldData();
  EXPECT_EQ(bench.completeRead(2, bytes), 0);
  EXPECT_THAT(bench.data().preReadFinished, IsEmpty());
  for (uint32_t i = 0; i < length; ++i) {
    const vdl::LBARecord& record = bench.table().records().at(lba + i);
    EXPECT_EQ(record.ref_count, 1U);
    EXPECT_EQ(record.events->cmd_id, atomic);
    ASSERT_NE(record.events->next, nullptr);
    EXPECT_EQ(record.events->next->type, vdl::EventType::Hash);
    EXPECT_EQ(record.events->next->cmd_id, id);
    EXPECT_EQ(record.events->next->hash, hashOf(bytes, i));
  }
}

TEST_F(PreReadCompletion, HardErrorIsTracedAndLeavesNothingBehind) {
  issue();
  bench.setReadData(2, oldData());
  EXPECT_EQ(bench.completeWithSense(2, {.key = 3, .asc = 0x11, .information = 102, .uec = 0x1234}), 0);
  EXPECT_THAT(bench.data().preReadFinished, IsEmpty());
  EXPECT_TRUE(bench.table().records().empty());
  EXPECT_THAT(bench.takeTrace(), ElementsAre(Traced{TraceType::ReadFinished, lba, length, id, 2}));
  EXPECT_EQ(bench.lastEntry().block, 0x1234U);
  EXPECT_EQ(bench.lastEntry().kcq.key, 3);
}

TEST_F(PreReadCompletion, InterfaceWithoutSenseDataMakesEveryFailureHard) {
  *bench.data().deviceInterface = 1;
  issue();
  bench.setReadData(2, oldData());
  EXPECT_EQ(bench.completeWithSense(2, {.key = 1, .information = {}}), 0);
  EXPECT_TRUE(bench.table().records().empty());
  EXPECT_THAT(bench.data().preReadFinished, IsEmpty());
  EXPECT_EQ(bench.lastEntry().kcq.key, 0);
}

TEST_F(PreReadCompletion, RecoveredErrorIsGoodAndTraced) {
  issue();
  const Bytes bytes = oldData();
  bench.setReadData(2, bytes);
  EXPECT_EQ(bench.completeWithSense(2, {.key = 1, .asc = 0x17, .information = 102}), 0);
  EXPECT_EQ(bench.lastEntry().kcq.key, 1);
  EXPECT_EQ(bench.lastEntry().kcq.code, 0x17);
  EXPECT_EQ(bench.data().preReadFinished.size(), 1U);
  // Only a medium error's failing LBA counts: every block was read.
  for (uint32_t i = 0; i < length; ++i) {
    expectHash(lba + i, hashOf(bytes, i));
  }
}

TEST_F(PreReadCompletion, MissingDataIsReportedButThePreReadIsHandedOn) {
  issue();
  EXPECT_EQ(bench.complete(2), -1022);
  EXPECT_THAT(bench.takeLog(), ElementsAre(LogLine{2, "recvPreRead() Read Buffer == NULL"},
                                           bench.failure("recvPreRead", -1022), bench.failure("execute", -1022)));
  ASSERT_EQ(bench.data().preReadFinished.size(), 1U);
  EXPECT_EQ(bench.data().preReadFinished.front().cmdId, id);
  EXPECT_TRUE(bench.table().records().empty());
}

TEST_F(PreReadCompletion, MissingDataOfAClaimedPreReadIsNotHandedOn) {
  issue();
  bench.atomicWrite(300, 8, 8, 5);
  EXPECT_EQ(bench.complete(2), -1022);
  EXPECT_THAT(bench.data().preReadFinished, IsEmpty());
}

TEST_F(PreReadCompletion, ShortDataEndTheHashes) {
  issue();
  Bytes bytes = oldData();
  bytes.resize(size_t{2} * bench.sectorBytes() + 100);
  EXPECT_EQ(bench.completeRead(2, bytes), 0);
  EXPECT_TRUE(bench.hasRecord(lba + 1));
  EXPECT_FALSE(bench.hasRecord(lba + 2));
  EXPECT_EQ(bench.data().preReadFinished.size(), 1U);
  EXPECT_FALSE(bench.data().referencesBalanced) << "the blocks behind have no hash that could be dropped";
}

TEST_F(PreReadCompletion, WithoutBlocksThereIsNoHash) {
  for (const bool skip : {false, true}) {
    bench.config().useSkipCommands = skip;
    bench.atomicWrite(lba, 0, 4, 2);
    EXPECT_EQ(bench.completeRead(2, oldData()), 0);
    EXPECT_TRUE(bench.table().records().empty());
    bench.data().preReadFinished.clear();
  }
}

TEST_F(PreReadCompletion, NothingIsReadBehindTheData) {
  // More blocks than are hashed at once.
  constexpr uint32_t blocks = 80;
  const size_t bytes = size_t{blocks} * bench.sectorBytes();
  const modeltest::GuardedMemory memory(bytes);
  uint8_t* const data = memory.data();
  std::iota(data, data + bytes, uint8_t{0});
  bench.atomicWrite(lba, blocks, 4, 2);
  bench.variables().tagged("ReadDataPtr[TagID]").set(2, data, bytes);
  *bench.data().readDataIsValid = 1;
  EXPECT_EQ(bench.complete(2), 0);
  for (uint32_t i = 0; i < blocks; ++i) {
    const uint8_t* first = data + size_t{i} * bench.sectorBytes();
    expectHash(lba + i, vdl::blockHash(first, first + bench.sectorBytes()));
  }
}

TEST_F(PreReadCompletion, SkipCommandsReadConsecutiveSectorsOfEveryOtherBlock) {
  bench.config().useSkipCommands = true;
  issue();
  const Bytes bytes = oldData();
  EXPECT_EQ(bench.completeRead(2, bytes), 0);
  for (uint32_t i = 0; i < length; ++i) {
    const uint64_t x = lba + uint64_t{2} * i;
    expectHash(x, hashOf(bytes, i));
    EXPECT_FALSE(bench.hasRecord(x + 1));
  }
}

TEST(PreReadCompletionWithProtection, HashCoversTheProtectionBytes) {
  CompletionBench bench({.protectionEnabled = true, .protectionBytes = 8});
  bench.start();
  bench.atomicWrite(lba, 2, 4, 2);
  Bytes bytes(1040, 0x33);
  bytes[520 + 519] = 0x34;
  EXPECT_EQ(bench.completeRead(2, bytes), 0);
  EXPECT_EQ(bench.table().peek(lba).hash, vdl::blockHash(bytes.data(), bytes.data() + 520));
  EXPECT_EQ(bench.table().peek(lba + 1).hash, vdl::blockHash(bytes.data() + 520, bytes.data() + 1040));
  EXPECT_NE(bench.table().peek(lba).hash, bench.table().peek(lba + 1).hash);
}

}  // namespace
}  // namespace benchtest
