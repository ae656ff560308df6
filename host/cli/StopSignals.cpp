#include "host/cli/StopSignals.h"

#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <csignal>
#include <stdexcept>
#include <system_error>

#include "host/run/TestRun.h"

namespace corvane::host {
namespace {

std::atomic<TestRun*> stoppable{nullptr};
std::atomic<int> stopReceived{0};
std::atomic<int> wakeUp{-1};  ///< readable when a wait has to end
static_assert(std::atomic<TestRun*>::is_always_lock_free && std::atomic<int>::is_always_lock_free,
              "the handler may use nothing that locks");

void setHandler(void (*handler)(int)) {
  struct sigaction action {};
  action.sa_handler = handler;
  action.sa_flags = SA_RESTART;
  sigemptyset(&action.sa_mask);
  for (const int signal : {SIGINT, SIGTERM}) {
    sigaction(signal, &action, nullptr);
  }
}

void endWait() {
  const int before = errno;
  const uint64_t once = 1;
  [[maybe_unused]] const ssize_t written = write(wakeUp.load(), &once, sizeof(once));  // full: it is readable already
  errno = before;
}

void onStop(int signal) {
  if (stopReceived.exchange(signal) != 0) {
    std::signal(signal, SIG_DFL);
    std::raise(signal);  // delivered when this handler returns
    return;
  }
  if (TestRun* test = stoppable.load(); test != nullptr) {
    test->requestStop();
  }
  endWait();
}

}  // namespace

StopSignals::StopSignals(TestRun& test) {
  TestRun* none = nullptr;
  if (!stoppable.compare_exchange_strong(none, &test)) {
    throw std::logic_error("signals stop one test at a time");
  }
  stopReceived.store(0);
  wakeUp.store(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK));
  if (wakeUp.load() < 0) {
    stoppable.store(nullptr);
    throw std::system_error(errno, std::generic_category(), "cannot wait for signals");
  }
  setHandler(onStop);
}

StopSignals::~StopSignals() {
  setHandler(SIG_DFL);
  stoppable.store(nullptr);
  close(wakeUp.exchange(-1));
}

int StopSignals::received() const { return stopReceived.load(); }

void StopSignals::wait(std::chrono::milliseconds time) const {
  pollfd descriptor{.fd = wakeUp.load(), .events = POLLIN, .revents = 0};
  if (poll(&descriptor, 1, static_cast<int>(time.count())) > 0) {
    uint64_t times = 0;
    [[maybe_unused]] const ssize_t got = read(descriptor.fd, &times, sizeof(times));
  }
}

void StopSignals::wake() const { endWait(); }

}  // namespace corvane::host
