#include "host/drive/engine/Engine.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <set>

#include "host/base/AlignedMemory.h"
#include "tests/support/TempFolder.h"

namespace corvane::host {
namespace {

constexpr uint64_t fileBytes = 16384;
constexpr uint32_t depth = 4;

/// What every engine does with a file.
class EngineTest : public testing::TestWithParam<const char*> {
 protected:
  void SetUp() override {
    tests::writeFile(folder / "x", std::string(fileBytes, 'x'));
    fd = open((folder / "x").c_str(), O_RDWR | O_CLOEXEC);
    ASSERT_GE(fd, 0);
    std::string refusal;
    engine = make(GetParam(), refusal);
    if (engine == nullptr) {
      GTEST_SKIP() << "io_uring is refused: " << refusal;
    }
  }
  void TearDown() override {
    engine.reset();
    close(fd);
  }

  std::unique_ptr<Engine> make(const std::string& kind, std::string& refusal) const {
    return kind == "Uring"     ? makeUringEngine(fd, depth, false, refusal)
           : kind == "Threads" ? makeThreadEngine(fd, depth)
                               : makeSyncEngine(fd, depth);
  }

  int64_t run(EngineRequest::Operation operation, uint64_t offset, uint64_t bytes, bool atomic = false) {
    EngineRequest request;
    request.operation = operation;
    request.atomic = atomic;
    request.slot = 3;
    request.offset = offset;
    request.bytes = bytes;
    request.data = memory.atLeast(bytes);
    engine->submit(request);
    EngineReply reply;
    EXPECT_TRUE(engine->poll(reply, true));
    EXPECT_EQ(reply.slot, 3U);
    return reply.result;
  }

  tests::TempFolder folder;
  int fd = -1;
  AlignedMemory memory;
  std::unique_ptr<Engine> engine;
};

using Operation = EngineRequest::Operation;

TEST_P(EngineTest, ZerosAreMadeOverTheRangeAlone) {
  const int64_t result = run(Operation::writeZeros, 4096, 4096);
  if (result == -EOPNOTSUPP) {
    GTEST_SKIP() << "the file system makes no zeros";
  }
  EXPECT_EQ(result, 0);
  std::string expected(fileBytes, 'x');
  expected.replace(4096, 4096, std::string(4096, '\0'));
  EXPECT_EQ(tests::readFile(folder / "x"), expected);
}

TEST_P(EngineTest, AHoleIsPunchedOverTheRangeAlone) {
  EXPECT_EQ(run(Operation::punchHole, 8192, 4096), 0);
  std::string expected(fileBytes, 'x');
  expected.replace(8192, 4096, std::string(4096, '\0'));
  EXPECT_EQ(tests::readFile(folder / "x"), expected);
}

TEST_P(EngineTest, AFileCannotBeDiscarded) {
  EXPECT_LT(run(Operation::discard, 0, 4096), 0);
  EXPECT_EQ(tests::readFile(folder / "x"), std::string(fileBytes, 'x'));
}

TEST_P(EngineTest, AnAtomicWriteIsRefusedWhereNobodyPromisesIt) {
  // Through the page cache, of which no kernel makes such a promise.
  EXPECT_EQ(run(Operation::write, 0, 4096, true), -EOPNOTSUPP);
  EXPECT_EQ(tests::readFile(folder / "x"), std::string(fileBytes, 'x'));
}

TEST_P(EngineTest, WhatLiesBehindTheEndMovesNothing) { EXPECT_EQ(run(Operation::read, fileBytes, 4096), 0); }

TEST_P(EngineTest, ManyAtOnceAreAnsweredOnceEach) {
  std::array<uint8_t, depth> data{};
  for (uint32_t round = 0; round < 3; ++round) {
    for (uint32_t slot = 0; slot < depth; ++slot) {
      engine->submit({.slot = slot, .offset = slot, .bytes = 1, .data = &data[slot]});
    }
    std::set<uint32_t> answered;
    EngineReply reply;
    while (answered.size() < depth) {
      ASSERT_TRUE(engine->poll(reply, true));
      EXPECT_EQ(reply.result, 1);
      EXPECT_TRUE(answered.insert(reply.slot).second);
    }
    EXPECT_FALSE(engine->poll(reply, false));
    EXPECT_EQ(data, (std::array<uint8_t, depth>{'x', 'x', 'x', 'x'}));
    data.fill(0);
  }
}

/// The engine without any helper in the background.
class SyncEngineTest : public EngineTest {};

TEST_P(SyncEngineTest, AnOperationHasEndedWhenItWasHandedOver) {
  uint8_t written = 'y';
  engine->submit({.operation = Operation::write, .slot = 2, .offset = 1, .bytes = 1, .data = &written});
  EXPECT_EQ(tests::readFile(folder / "x").substr(0, 3), "xyx");
  uint8_t read = 0;
  engine->submit({.slot = 1, .offset = 1, .bytes = 1, .data = &read});
  EXPECT_EQ(read, 'y');
  EngineReply reply;
  ASSERT_TRUE(engine->poll(reply, false));
  EXPECT_EQ(reply.slot, 2U);
  ASSERT_TRUE(engine->poll(reply, false));
  EXPECT_EQ(reply.slot, 1U);
}

INSTANTIATE_TEST_SUITE_P(Of, SyncEngineTest, testing::Values("Sync"));

INSTANTIATE_TEST_SUITE_P(Every, EngineTest, testing::Values("Uring", "Threads", "Sync"),
                         [](const auto& test) { return std::string(test.param); });

}  // namespace
}  // namespace corvane::host
