#include "host/drive/engine/Engine.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cerrno>

#include "host/base/AlignedMemory.h"
#include "tests/support/TempFolder.h"

namespace corvane::host {
namespace {

constexpr uint64_t fileBytes = 16384;

/// What every engine does with a file.
class EngineTest : public testing::TestWithParam<const char*> {
 protected:
  void SetUp() override {
    tests::writeFile(folder / "x", std::string(fileBytes, 'x'));
    fd = open((folder / "x").c_str(), O_RDWR | O_CLOEXEC);
    ASSERT_GE(fd, 0);
    std::string refusal;
    engine = GetParam() == std::string("Uring") ? makeUringEngine(fd, 4, false, refusal) : makeThreadEngine(fd, 4);
    if (engine == nullptr) {
      GTEST_SKIP() << "io_uring is refused: " << refusal;
    }
  }
  void TearDown() override {
    engine.reset();
    close(fd);
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
  EXPECT_EQ(run(Operation::writeZeros, 4096, 4096), 0);
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

INSTANTIATE_TEST_SUITE_P(Every, EngineTest, testing::Values("Uring", "Threads"),
                         [](const auto& test) { return std::string(test.param); });

}  // namespace
}  // namespace corvane::host
