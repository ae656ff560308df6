#include "host/drive/engine/Engine.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <linux/capability.h>
#include <sys/file.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <set>
#include <thread>

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

TEST_P(EngineTest, WhatIsQueuedIsCarriedOutOnceItIsSent) {
  std::array<uint8_t, depth> data{'a', 'b', 'c', 'd'};
  for (uint32_t slot = 0; slot < depth; ++slot) {
    engine->submit({.operation = Operation::write, .slot = slot, .offset = slot, .bytes = 1, .data = &data[slot]});
  }
  engine->sendQueued();
  // Nobody asks the engine for an answer meanwhile.
  const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(10);
  while (tests::readFile(folder / "x").substr(0, depth) != "abcd" && std::chrono::steady_clock::now() < end) {
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
  EXPECT_EQ(tests::readFile(folder / "x").substr(0, depth), "abcd");
  EngineReply reply;
  for (uint32_t slot = 0; slot < depth; ++slot) {
    ASSERT_TRUE(engine->poll(reply, true));
    EXPECT_EQ(reply.result, 1);
  }
}

TEST_P(EngineTest, AfterASleepTheReplyIsThere) {
  std::array<uint8_t, 1> data{};
  engine->submit({.slot = 2, .offset = 0, .bytes = 1, .data = data.data()});
  EXPECT_TRUE(engine->waitUpTo(60'000'000));
  EngineReply reply;
  EXPECT_TRUE(engine->poll(reply, false));
  EXPECT_EQ(reply.slot, 2U);
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

/// Pages of its own, which stay where they are.
class Pages {
 public:
  explicit Pages(uint64_t bytes) : bytes_(bytes), data_(map(nullptr, 0)) {}
  ~Pages() { munmap(data_, bytes_); }
  Pages(const Pages&) = delete;
  Pages& operator=(const Pages&) = delete;

  uint8_t* data() const { return data_; }
  /// Other pages at the same place.
  void replace() { map(data_, MAP_FIXED); }

 private:
  uint8_t* map(void* at, int flags) const {
    return static_cast<uint8_t*>(
        mmap(at, bytes_, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE | flags, -1, 0));
  }
  uint64_t bytes_;
  uint8_t* data_;
};

constexpr uint64_t page = 4096;

TEST_P(EngineTest, ReadsArriveInsideAcrossAndOutsideOfTheMemoryThatItWasToldOf) {
  const Pages pages(4 * page);
  engine->useMemory(pages.data(), 2 * page);
  for (const uint64_t place : {uint64_t{0}, 2 * page - 512, 2 * page - 100, 3 * page}) {
    uint8_t* data = pages.data() + place;
    engine->submit({.slot = 1, .offset = 512, .bytes = 512, .data = data});
    EngineReply reply;
    ASSERT_TRUE(engine->poll(reply, true));
    EXPECT_EQ(reply.result, 512);
    EXPECT_EQ(std::count(data, data + 512, 'x'), 512) << "at " << place;
    std::fill(data, data + 512, uint8_t{0});
  }
}

TEST_P(EngineTest, MemoryThatIsGivenUpMayGetOtherPages) {
  Pages pages(page);
  for (int round = 0; round < 3; ++round) {
    engine->useMemory(pages.data(), page);
    engine->useMemory(nullptr, 0);
    pages.replace();
    engine->submit({.slot = 1, .offset = 0, .bytes = 512, .data = pages.data()});
    EngineReply reply;
    ASSERT_TRUE(engine->poll(reply, true));
    EXPECT_EQ(pages.data()[511], 'x');
  }
}

TEST_P(EngineTest, MemoryThatCannotBeHeldIsReadToAllTheSame) {
  constexpr uint64_t tooMuch = uint64_t{65} << 20;
  const Pages large(tooMuch);
  const Pages closed(page);
  ASSERT_EQ(mprotect(closed.data(), page, PROT_NONE), 0);
  for (const bool isOpen : {true, false}) {
    engine->useMemory(isOpen ? large.data() : closed.data(), isOpen ? tooMuch : page);
    engine->submit({.slot = 1, .offset = 0, .bytes = 512, .data = large.data()});
    EngineReply reply;
    ASSERT_TRUE(engine->poll(reply, true));
    EXPECT_EQ(large.data()[511], 'x');
    large.data()[511] = 0;
  }
}

TEST_P(EngineTest, ItsEndLeavesTheFileToOthersAtOnce) {
  ASSERT_EQ(flock(fd, LOCK_EX | LOCK_NB), 0);
  EXPECT_EQ(run(Operation::read, 0, 512), 512);
  engine.reset();
  close(fd);
  fd = open((folder / "x").c_str(), O_RDWR | O_CLOEXEC);
  EXPECT_EQ(flock(fd, LOCK_EX | LOCK_NB), 0);
}

/// This thread without the right to lock more memory than its limit says, as a user who is not root; what that user may
/// lock can be taken away for a while, too.
class LimitedMemory {
 public:
  LimitedMemory() {
    getrlimit(RLIMIT_MEMLOCK, &limit_);
    syscall(SYS_capget, &header_, rights_.data());
    Rights fewer = rights_;
    fewer[CAP_TO_INDEX(CAP_IPC_LOCK)].effective &= ~CAP_TO_MASK(CAP_IPC_LOCK);
    syscall(SYS_capset, &header_, fewer.data());
  }
  ~LimitedMemory() {
    setrlimit(RLIMIT_MEMLOCK, &limit_);
    syscall(SYS_capset, &header_, rights_.data());
  }
  LimitedMemory(const LimitedMemory&) = delete;
  LimitedMemory& operator=(const LimitedMemory&) = delete;

  void allow(uint64_t bytes) const {
    const rlimit limit{std::min<rlim_t>(bytes, limit_.rlim_max), limit_.rlim_max};
    setrlimit(RLIMIT_MEMLOCK, &limit);
  }

 private:
  using Rights = std::array<__user_cap_data_struct, _LINUX_CAPABILITY_U32S_3>;
  __user_cap_header_struct header_{.version = _LINUX_CAPABILITY_VERSION_3, .pid = 0};
  Rights rights_{};
  rlimit limit_{};
};

/// The engine of the kernel's rings.
class UringEngineTest : public EngineTest {
 protected:
  /// Memory that the kernel may not move nor give away, as it tells it of this process.
  static uint64_t pinnedKiB() {
    const std::string status = tests::readFile("/proc/self/status");
    return std::stoull(status.substr(status.find("VmPin:") + 6));
  }
};

TEST_P(UringEngineTest, HoldsThePagesThatItWasToldOfUntilTheyAreGivenUp) {
  const Pages pages(4 * page);
  const uint64_t before = pinnedKiB();
  engine->useMemory(pages.data(), 4 * page);
  EXPECT_EQ(pinnedKiB(), before + 16);
  engine->useMemory(pages.data(), 2 * page);
  EXPECT_EQ(pinnedKiB(), before + 8);
  engine->useMemory(nullptr, 0);
  EXPECT_EQ(pinnedKiB(), before);
}

TEST_P(UringEngineTest, ReadsAllTheSameWhenItsUserMayNotLockSoMuch) {
  engine.reset();
  const LimitedMemory limited;
  std::string refusal;
  // Made without the right: the kernel asks for it then, and goes by the limit from there on.
  engine = make("Uring", refusal);
  ASSERT_NE(engine, nullptr) << refusal;
  const Pages pages(4 * page);
  const uint64_t before = pinnedKiB();
  for (const bool isAllowed : {true, false}) {
    limited.allow(isAllowed ? RLIM_INFINITY : 0);
    engine->useMemory(pages.data(), 4 * page);
    EXPECT_EQ(pinnedKiB(), before + (isAllowed ? 16 : 0));
    engine->submit({.slot = 1, .offset = 0, .bytes = 512, .data = pages.data()});
    EngineReply reply;
    ASSERT_TRUE(engine->poll(reply, true));
    EXPECT_EQ(reply.result, 512);
    EXPECT_EQ(std::count(pages.data(), pages.data() + 512, 'x'), 512);
    std::fill(pages.data(), pages.data() + 512, uint8_t{0});
  }
}

INSTANTIATE_TEST_SUITE_P(Of, UringEngineTest, testing::Values("Uring"));

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
