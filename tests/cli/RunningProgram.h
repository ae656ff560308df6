#pragma once

#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>

#include <stdexcept>
#include <string>
#include <vector>

#include "tests/support/TempFolder.h"

extern char** environ;

namespace corvane::host::testing {

struct ProgramEnd {
  int status = -1;  ///< exit status; -1 when a signal ended it
  std::string out;
  std::string err;
};

/// A run of the built program in a working folder.
class RunningProgram {
 public:
  /// The streams go to files beside the folder and not into it.
  RunningProgram(const tests::TempFolder& folder, const std::vector<std::string>& arguments) {
    std::vector<std::string> words{CORVANE_BINARY};
    words.insert(words.end(), arguments.begin(), arguments.end());
    std::vector<char*> argv;
    argv.reserve(words.size() + 1);
    for (std::string& word : words) {
      argv.push_back(word.data());
    }
    argv.push_back(nullptr);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addchdir_np(&actions, folder.path().c_str());
    const std::string out = streams_ / "out";
    const std::string err = streams_ / "err";
    posix_spawn_file_actions_addopen(&actions, 0, "/dev/null", O_RDONLY, 0);
    posix_spawn_file_actions_addopen(&actions, 1, out.c_str(), O_WRONLY | O_CREAT, 0644);
    posix_spawn_file_actions_addopen(&actions, 2, err.c_str(), O_WRONLY | O_CREAT, 0644);
    const int fault = posix_spawn(&pid_, words.front().c_str(), &actions, nullptr, argv.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    if (fault != 0) {
      throw std::runtime_error("cannot start " + words.front());
    }
  }

  pid_t pid() const { return pid_; }
  std::string outSoFar() const { return tests::readFile(streams_ / "out"); }

  /// Whether it has ended by itself; `wait` then returns at once.
  bool ended() const {
    siginfo_t info{};
    return waitid(P_PID, static_cast<id_t>(pid_), &info, WEXITED | WNOHANG | WNOWAIT) != 0 || info.si_pid != 0;
  }

  ProgramEnd wait() {
    int status = 0;
    if (waitpid(pid_, &status, 0) != pid_) {
      throw std::runtime_error("lost the program");
    }
    return {.status = WIFEXITED(status) ? WEXITSTATUS(status) : -1,
            .out = outSoFar(),
            .err = tests::readFile(streams_ / "err")};
  }

 private:
  tests::TempFolder streams_;
  pid_t pid_ = -1;
};

inline ProgramEnd runCorvane(const tests::TempFolder& folder, const std::vector<std::string>& arguments) {
  return RunningProgram(folder, arguments).wait();
}

}  // namespace corvane::host::testing
