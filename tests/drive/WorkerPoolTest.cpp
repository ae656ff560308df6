#include "host/drive/WorkerPool.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <set>

namespace corvane::host {
namespace {

using Pool = WorkerPool<int, int>;

TEST(WorkerPool, CarriesOutEveryRequest) {
  Pool pool(3, 20, [](const int& number) { return number * number; });
  std::set<int> expected;
  for (int i = 0; i < 20; ++i) {
    pool.submit(i);
    expected.insert(i * i);
  }
  std::set<int> replies;
  int reply = 0;
  while (replies.size() < expected.size() && pool.poll(reply, true)) {
    replies.insert(reply);
  }
  EXPECT_EQ(replies, expected);
  EXPECT_FALSE(pool.poll(reply, false));
}

TEST(WorkerPool, ASleepEndsWithAReplyOrWhenItsTimeIsOver) {
  std::atomic<bool> mayEnd = false;
  Pool pool(1, 1, [&](const int& number) {
    mayEnd.wait(false);
    return number;
  });
  pool.submit(5);
  int reply = 0;
  EXPECT_TRUE(pool.waitUpTo(1000));
  EXPECT_FALSE(pool.poll(reply, false));
  mayEnd = true;
  mayEnd.notify_all();
  EXPECT_TRUE(pool.waitUpTo(60'000'000));
  EXPECT_TRUE(pool.poll(reply, false));
  EXPECT_EQ(reply, 5);
}

TEST(WorkerPool, ItsEndWaitsForWhatIsBeingCarriedOut) {
  std::atomic<bool> begun = false;
  std::atomic<bool> ended = false;
  {
    Pool pool(1, 1, [&](const int& number) {
      begun = true;
      std::this_thread::sleep_for(std::chrono::milliseconds(50));
      ended = true;
      return number;
    });
    pool.submit(1);
    while (!begun) {
      std::this_thread::yield();
    }
  }
  EXPECT_TRUE(ended);
}

/// In a process of its own: makes a pool as a user who may have three threads, and says how it went.
[[noreturn]] void makePoolWithFewThreads() {
  const rlimit few{3, 3};
  setrlimit(RLIMIT_NPROC, &few);
  constexpr uid_t nobody = 65534;
  if (setuid(nobody) != 0) {
    std::fputs("cannot change the user", stderr);
    _exit(2);
  }
  try {
    const Pool pool(64, 64, [](const int& number) { return number; });
  } catch (const DriveError& error) {
    std::fputs(error.what(), stderr);
    _exit(3);
  }
  _exit(0);
}

TEST(WorkerPool, IsRefusedWhereTheSystemAllowsTooFewThreads) {
  if (geteuid() != 0) {
    GTEST_SKIP() << "needs root to become a user with few threads";
  }
  EXPECT_EXIT(makePoolWithFewThreads(), testing::ExitedWithCode(3),
              "only [0-3] of 64 threads can be started: .*have fewer commands outstanding");
}

}  // namespace
}  // namespace corvane::host
