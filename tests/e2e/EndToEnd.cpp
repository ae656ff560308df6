#include "tests/e2e/EndToEnd.h"

#include <sys/time.h>

#include <atomic>
#include <fstream>
#include <sstream>
#include <stdexcept>

#include "host/drive/DriveFactory.h"
#include "tests/e2e/ClockJump.h"

namespace {

constexpr uint64_t epochUs = 1'700'000'000'000'000;
constexpr uint64_t usPerLook = 2000;
std::atomic<uint64_t> virtualUs{epochUs};

uint64_t look() { return virtualUs.fetch_add(usPerLook, std::memory_order_relaxed); }

}  // namespace

// The agent asks the C library for the time. This program's symbols are found first.
extern "C" __attribute__((visibility("default"))) int gettimeofday(timeval* now, void* /*zone*/) noexcept {
  const uint64_t us = look();
  now->tv_sec = static_cast<time_t>(us / 1'000'000);
  now->tv_usec = static_cast<suseconds_t>(us % 1'000'000);
  return 0;
}

namespace corvane::host::e2e {

uint64_t VirtualClock::wallUs() { return look(); }

void VirtualClock::restart() { virtualUs = epochUs; }

void jumpTimeOfDay(int64_t microseconds) { virtualUs.fetch_add(static_cast<uint64_t>(microseconds)); }

std::string agentPath() { return CORVANE_AGENT_PATH; }

TestDefinition prepared(TestDefinition test, const Workspace& workspace) {
  test.pluginPath = agentPath();
  test.outputDirectory = workspace / "output";
  return test;
}

std::function<std::unique_ptr<Drive>(std::string_view, uint32_t, uint64_t, Overwriting)> guardedDrives(
    const TestDefinition& test, const Wrap& wrap, Trespasses& trespasses) {
  return [test, wrap, &trespasses](std::string_view address, uint32_t maxOutstanding, uint64_t seed,
                                   Overwriting overwriting) {
    std::unique_ptr<Drive> drive = openDrive(address, maxOutstanding, seed, overwriting);
    const GivenRange range = GivenRange::of(test, drive->geometry());
    return std::make_unique<RangeGuard>(wrap ? wrap(std::move(drive)) : std::move(drive), range, trespasses);
  };
}

RunResult runTest(const TestDefinition& test, const Wrap& wrap, const vdl::AgentTable* agent,
                  const WorthListener& listener) {
  VirtualClock::restart();
  VirtualClock clock;
  Trespasses trespasses;
  RunSurroundings world;
  world.clock = &clock;
  world.agent = agent;
  world.worthListener = listener;
  world.openDrive = guardedDrives(test, wrap, trespasses);
  RunResult result = TestRun(test, nullptr, world).run();
  if (const std::string text = trespasses.text(); !text.empty()) {
    throw std::logic_error("outside the range of the test:\n" + text);
  }
  return result;
}

std::string agentLines(const RunResult& result) {
  std::string text;
  for (const DriveResult& drive : result.drives) {
    text += drive.name + ": " + runStatusName(drive.status) + " " + drive.error + "\n";
    for (const AgentMessages::Line& line : drive.messages.lines) {
      text += "  [" + std::to_string(line.level) + "] " + line.text + "\n";
    }
  }
  return text;
}

std::string contentOf(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  if (!file) {
    throw std::runtime_error("cannot read " + path);
  }
  std::ostringstream text;
  text << file.rdbuf();
  return text.str();
}

}  // namespace corvane::host::e2e
