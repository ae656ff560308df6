#include "host/cli/StopSignals.h"

#include <atomic>
#include <csignal>
#include <stdexcept>

#include "host/run/TestRun.h"

namespace corvane::host {
namespace {

std::atomic<TestRun*> stoppable{nullptr};
std::atomic<bool> stopReceived{false};
static_assert(std::atomic<TestRun*>::is_always_lock_free && std::atomic<bool>::is_always_lock_free,
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

void onStop(int signal) {
  if (stopReceived.exchange(true)) {
    std::signal(signal, SIG_DFL);
    std::raise(signal);  // delivered when this handler returns
    return;
  }
  if (TestRun* test = stoppable.load(); test != nullptr) {
    test->requestStop();
  }
}

}  // namespace

StopSignals::StopSignals(TestRun& test) {
  TestRun* none = nullptr;
  if (!stoppable.compare_exchange_strong(none, &test)) {
    throw std::logic_error("signals stop one test at a time");
  }
  stopReceived.store(false);
  setHandler(onStop);
}

StopSignals::~StopSignals() {
  setHandler(SIG_DFL);
  stoppable.store(nullptr);
}

bool StopSignals::received() const { return stopReceived.load(); }

}  // namespace corvane::host
