#include "tests/support/EachAllocation.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>

#include "tests/support/Shortage.h"

namespace corvane::tests {
namespace {

constexpr int nothingFailed = 100;  ///< added to the status of a process in which no allocation failed

}  // namespace

Ending endingWithout(uint64_t allocation, const std::function<int()>& work, const TempFolder& folder) {
  const std::string said = folder / "said";
  const pid_t child = fork();
  if (child == 0) {
    const int file = open(said.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
    dup2(file, STDOUT_FILENO);
    dup2(file, STDERR_FILENO);
    const Shortage shortage(allocation);
    const int status = work();
    const bool failed = Shortage::end();
    std::fflush(stdout);
    _exit(status + (failed || allocation == 0 ? 0 : nothingFailed));
  }
  int end = 0;
  waitpid(child, &end, 0);
  const int status = WIFEXITED(end) ? WEXITSTATUS(end) : -WTERMSIG(end);
  Ending ending{.status = status, .said = readFile(said), .failed = status < nothingFailed};
  ending.status -= ending.failed ? 0 : nothingFailed;
  return ending;
}

uint64_t failEachAllocation(const std::function<int()>& work, int good, int withoutMemory, Allocations which,
                            const std::function<void()>& prepare) {
  const TempFolder folder;
  const auto prepared = [&] {
    if (prepare) {
      prepare();
    }
  };
  prepared();
  const Ending whole = endingWithout(0, work, folder);
  EXPECT_EQ(whole.status, good) << whole.said;
  uint64_t refused = 0;
  uint64_t number = 0;
  Ending ending;
  do {
    number += number < which.everyOneUpTo ? 1 : which.stride;
    prepared();
    ending = endingWithout(number, work, folder);
    if (ending.failed && ending.status != good) {
      EXPECT_EQ(ending.status, withoutMemory) << "allocation " << number << ": " << ending.said;
      EXPECT_THAT(ending.said, saysOutOfMemory()) << "allocation " << number;
      ++refused;
    }
  } while (ending.failed);
  EXPECT_EQ(ending.status, good) << ending.said;
  ::testing::Test::RecordProperty("allocations", static_cast<int>(number));
  return refused;
}

}  // namespace corvane::tests
