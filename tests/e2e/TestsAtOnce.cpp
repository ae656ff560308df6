// Runs tests that are drawn at random several at once in this process, and each of them alone: company must not change
// what a test does.
//
//   tests_at_once [--tests N] [--first N] [--at-once N]
//
// The exit status is 0 when it did not. Of most use in a build with the thread sanitizer, which has an exit status of
// its own.

#include <CLI/CLI.hpp>
#include <atomic>
#include <cstdio>
#include <mutex>
#include <thread>
#include <vector>

#include "host/drive/DriveError.h"
#include "host/run/ConfigurationError.h"
#include "tests/e2e/EndToEnd.h"
#include "tests/e2e/RandomTests.h"

namespace corvane::host::e2e {
namespace {

struct Settings {
  uint64_t tests = 2000;
  uint64_t first = 1;
  uint32_t atOnce = 8;
};

struct Tally {
  uint64_t same = 0;
  uint64_t refused = 0;    ///< before they began, in company and alone
  uint64_t cutShort = 0;   ///< asked to end in the middle
  uint64_t timed = 0;      ///< cut the power by a clock that all share, so that they differ from run to run
  uint64_t different = 0;  ///< or left a file that is not whole
};

/// Everything that a test did, in words that are the same when it does the same.
std::string storyOf(const RunResult& result) {
  std::string story = agentLines(result);
  for (const DriveResult& drive : result.drives) {
    story += std::to_string(drive.totals.commandsIssued()) + " issued, " + std::to_string(drive.totals.blocksCompared) +
             " compared, " + std::to_string(drive.totals.resets) + " resets\n";
    for (const std::string& cut : drive.messages.incomplete) {
      story += "incomplete: " + cut + "\n";
    }
    for (const std::string& report : drive.messages.reports) {
      story += contentOf(report);
    }
  }
  return story;
}

/// @param askedToEnd asked for as soon as it runs
std::string storyOf(const TestDefinition& test, bool askedToEnd) {
  try {
    TestRun run(test);
    std::jthread asker;
    if (askedToEnd) {
      asker = std::jthread([&run] {
        run.progress();
        run.requestStop();
      });
    }
    return storyOf(run.run());
  } catch (const ConfigurationError&) {
    return {};
  } catch (const DriveError&) {
    return {};
  }
}

class Company {
 public:
  explicit Company(const Settings& settings) : settings_(settings), next_(settings.first) {}

  Tally run() {
    {
      std::vector<std::jthread> threads;
      for (uint32_t i = 0; i < settings_.atOnce; ++i) {
        threads.emplace_back([this] {
          const uint64_t end = settings_.first + settings_.tests;
          for (uint64_t number = next_.fetch_add(1); number < end; number = next_.fetch_add(1)) {
            runOne(number);
          }
        });
      }
    }
    compare();
    return tally_;
  }

 private:
  static constexpr uint64_t cutShortEvery = 5;

  struct Told {
    uint64_t number = 0;
    std::string story;
  };

  /// With reports of drives of the same names in the same folder.
  TestDefinition testOf(uint64_t number, const Workspace& workspace) const {
    TestDefinition test = prepared(randomTest(number), workspace);
    test.agentOptions.emplace_back("Always Dump Sequence", "true");
    return test;
  }

  void runOne(uint64_t number) {
    const bool cutShort = number % cutShortEvery == 0;
    const TestDefinition test = testOf(number, together_);
    std::string story = storyOf(test, cutShort);
    const std::lock_guard lock(mutex_);
    if (story.find("incomplete: ") != std::string::npos) {
      ++tally_.different;
      std::printf("test %lu in company: %s", static_cast<unsigned long>(number), story.c_str());
    } else if (cutShort) {
      ++tally_.cutShort;
    } else if (test.powerToggle != PowerToggle::off) {
      ++tally_.timed;
    } else {
      told_.push_back({number, std::move(story)});
    }
  }

  void compare() {
    for (const Told& told : told_) {
      const Workspace workspace;
      const std::string alone = storyOf(testOf(told.number, workspace), false);
      if (alone != told.story) {
        ++tally_.different;
        std::printf("test %lu\n--- alone\n%s--- in company\n%s", static_cast<unsigned long>(told.number), alone.c_str(),
                    told.story.c_str());
      } else {
        ++(alone.empty() ? tally_.refused : tally_.same);
      }
    }
  }

  const Settings settings_;
  const Workspace together_;
  std::atomic<uint64_t> next_;
  std::mutex mutex_;
  Tally tally_;
  std::vector<Told> told_;
};

}  // namespace
}  // namespace corvane::host::e2e

int main(int argc, char** argv) {
  try {
    corvane::host::e2e::Settings settings;
    CLI::App app("Runs tests that are drawn at random several at once, and each of them alone");
    app.add_option("--tests", settings.tests, "how many")->capture_default_str();
    app.add_option("--first", settings.first, "number of the first")->capture_default_str();
    app.add_option("--at-once", settings.atOnce, "how many at once")->capture_default_str();
    CLI11_PARSE(app, argc, argv);
    const corvane::host::e2e::Tally tally = corvane::host::e2e::Company(settings).run();
    std::printf("%lu tests did the same as alone, %lu did not; %lu were refused, %lu cut short, %lu cut the power\n",
                tally.same, tally.different, tally.refused, tally.cutShort, tally.timed);
    return tally.different == 0 && tally.same != 0 ? 0 : 1;
  } catch (const std::exception& error) {
    std::fprintf(stderr, "%s\n", error.what());
    return 100;
  }
}
