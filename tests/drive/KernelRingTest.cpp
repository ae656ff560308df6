#include "host/drive/KernelRing.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <stdexcept>
#include <system_error>
#include <thread>

namespace corvane::host {
namespace {

/// A pipe, which lets a read wait for as long as the test likes.
class KernelRingTest : public testing::Test {
 protected:
  void SetUp() override {
    ASSERT_EQ(pipe2(ends.data(), O_CLOEXEC), 0);
    if (const int error = KernelRing(1, 0).error(); error != 0) {
      GTEST_SKIP() << "io_uring is refused: " << std::generic_category().message(error);
    }
  }
  void TearDown() override {
    close(ends[0]);
    close(ends[1]);
  }

  void queueRead(KernelRing& ring, uint32_t slot) {
    io_uring_sqe* entry = ring.entry();
    io_uring_prep_read(entry, ends[0], &arrived, 1, ~uint64_t{0});
    ring.queue(entry, slot);
  }
  /// Requests that end as soon as the kernel has them.
  static void queueNothing(KernelRing& ring, uint32_t count) {
    for (uint32_t slot = 0; slot < count; ++slot) {
      io_uring_sqe* entry = ring.entry();
      io_uring_prep_nop(entry);
      ring.queue(entry, slot);
    }
  }
  /// Requests whose being carried out shows at the pipe.
  void queueWrite(KernelRing& ring) const {
    io_uring_sqe* entry = ring.entry();
    io_uring_prep_write(entry, ends[1], "x", 1, ~uint64_t{0});
    ring.queue(entry, 99);
  }
  int bytesInPipe() const {
    int bytes = -1;
    EXPECT_EQ(ioctl(ends[0], FIONREAD, &bytes), 0);
    return bytes;
  }
  void give(char sign) const { EXPECT_EQ(write(ends[1], &sign, 1), 1); }

  std::array<int, 2> ends{-1, -1};
  char arrived = 0;
};

TEST_F(KernelRingTest, AnAnswerHasItsRequestsSlotAndResult) {
  KernelRing ring(4, 0);
  queueRead(ring, 7);
  KernelRing::Answer answer;
  EXPECT_FALSE(ring.poll(answer, false));
  give('x');
  EXPECT_TRUE(ring.poll(answer, true));
  EXPECT_EQ(answer.slot, 7U);
  EXPECT_EQ(answer.result, 1);
  EXPECT_EQ(arrived, 'x');
}

TEST_F(KernelRingTest, AnAnswerThatCameFromOutsideIsFoundWithoutWaiting) {
  KernelRing ring(4, 0);
  queueRead(ring, 7);
  KernelRing::Answer answer;
  ASSERT_FALSE(ring.poll(answer, false));
  std::thread giver([this] { give('x'); });
  giver.join();
  const auto patience = std::chrono::steady_clock::now() + std::chrono::seconds(30);
  bool came = ring.poll(answer, false);
  while (!came && std::chrono::steady_clock::now() < patience) {
    came = ring.poll(answer, false);
  }
  ASSERT_TRUE(came);
  EXPECT_EQ(answer.slot, 7U);
  EXPECT_EQ(arrived, 'x');
}

TEST_F(KernelRingTest, ItsEndWaitsForWhatTheKernelHas) {
  std::atomic<bool> given = false;
  std::thread giver;
  {
    KernelRing ring(4, 0);
    queueRead(ring, 1);
    KernelRing::Answer answer;
    ASSERT_FALSE(ring.poll(answer, false));
    giver = std::thread([&] {
      std::this_thread::sleep_for(std::chrono::milliseconds(50));
      given = true;
      give('x');
    });
  }
  EXPECT_TRUE(given);
  EXPECT_EQ(arrived, 'x');
  giver.join();
}

TEST_F(KernelRingTest, ItsEndDropsWhatWasNotSent) {
  {
    KernelRing ring(4, 0);
    queueRead(ring, 1);
  }
  EXPECT_EQ(arrived, 0);
}

TEST_F(KernelRingTest, WhatIsQueuedWaitsWhileAnswersLieReadyAndGoesBeforeTheLastIsTaken) {
  KernelRing ring(16, 0);
  queueNothing(ring, 4);
  KernelRing::Answer answer;
  ASSERT_TRUE(ring.poll(answer, false));
  for (uint32_t written = 1; written <= 2; ++written) {
    queueWrite(ring);
    ASSERT_TRUE(ring.poll(answer, false));
    EXPECT_EQ(bytesInPipe(), 0);
  }
  ASSERT_TRUE(ring.poll(answer, false));
  EXPECT_EQ(bytesInPipe(), 2);
  EXPECT_EQ(answer.slot, 3U);
}

TEST_F(KernelRingTest, HalfOfItsDepthIsNotKeptWaiting) {
  KernelRing ring(6, 0);
  EXPECT_EQ(ring.mostUnsent(), 3U);
  queueNothing(ring, 6);
  KernelRing::Answer answer;
  ASSERT_TRUE(ring.poll(answer, false));
  for (const int sent : {0, 0, 3}) {
    queueWrite(ring);
    ASSERT_TRUE(ring.poll(answer, false));
    EXPECT_EQ(bytesInPipe(), sent);
  }
}

TEST_F(KernelRingTest, WaitingSendsWhatIsQueued) {
  KernelRing ring(1, 0);
  KernelRing::Answer answer;
  for (int written = 1; written <= 3; ++written) {
    queueWrite(ring);
    ASSERT_TRUE(ring.poll(answer, true));
    EXPECT_EQ(bytesInPipe(), written);
    EXPECT_FALSE(ring.poll(answer, false));
  }
}

TEST_F(KernelRingTest, ASleepSendsWhatIsQueuedAndEndsWithAnAnswer) {
  KernelRing ring(4, 0);
  queueRead(ring, 7);
  std::thread giver([this] {
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    give('x');
  });
  EXPECT_TRUE(ring.waitUpTo(60'000'000));
  KernelRing::Answer answer;
  EXPECT_TRUE(ring.poll(answer, false));
  EXPECT_EQ(answer.slot, 7U);
  EXPECT_EQ(arrived, 'x');
  EXPECT_FALSE(ring.poll(answer, false));
  giver.join();
}

TEST_F(KernelRingTest, ASleepEndsWhenItsTimeIsOver) {
  KernelRing ring(4, 0);
  queueRead(ring, 7);
  KernelRing::Answer answer;
  for (int i = 0; i < 3; ++i) {
    EXPECT_TRUE(ring.waitUpTo(1000));
    EXPECT_FALSE(ring.poll(answer, false));
  }
  give('x');
  EXPECT_TRUE(ring.poll(answer, true));
}

TEST_F(KernelRingTest, WithAnAnswerReadyThereIsNoSleep) {
  KernelRing ring(4, 0);
  queueNothing(ring, 2);
  KernelRing::Answer answer;
  EXPECT_TRUE(ring.waitUpTo(60'000'000));
  EXPECT_TRUE(ring.waitUpTo(60'000'000));
  EXPECT_TRUE(ring.poll(answer, false));
  EXPECT_TRUE(ring.waitUpTo(60'000'000));
  EXPECT_TRUE(ring.poll(answer, false));
  EXPECT_FALSE(ring.waitUpTo(60'000'000)) << "nothing is under way that could end it";
}

TEST_F(KernelRingTest, ASignalDoesNotEndTheWaiting) {
  KernelRing ring(4, 0);
  queueRead(ring, 7);
  struct sigaction interrupt {};
  struct sigaction before {};
  interrupt.sa_handler = [](int) {};
  ASSERT_EQ(sigaction(SIGUSR1, &interrupt, &before), 0);
  std::thread giver([this, waiting = pthread_self()] {
    for (int i = 0; i < 5; ++i) {
      std::this_thread::sleep_for(std::chrono::milliseconds(5));
      pthread_kill(waiting, SIGUSR1);
    }
    give('x');
  });
  KernelRing::Answer answer;
  EXPECT_TRUE(ring.poll(answer, true));
  EXPECT_EQ(answer.slot, 7U);
  EXPECT_EQ(arrived, 'x');
  giver.join();
  sigaction(SIGUSR1, &before, nullptr);
}

TEST_F(KernelRingTest, MoreThanItsDepthIsRefused) {
  KernelRing ring(2, 0);
  queueRead(ring, 1);
  queueRead(ring, 2);
  EXPECT_THROW(ring.entry(), std::logic_error);
}

TEST(KernelRing, SaysWhyTheKernelRefusesIt) { EXPECT_EQ(KernelRing(1, ~0U).error(), EINVAL); }

}  // namespace
}  // namespace corvane::host
