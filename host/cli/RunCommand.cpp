#include "host/cli/RunCommand.h"

#include <array>
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <memory>
#include <mutex>
#include <string_view>
#include <thread>
#include <utility>

#include "host/base/TextFormat.h"
#include "host/cli/AgentLines.h"
#include "host/cli/ExitStatus.h"
#include "host/cli/NewPaths.h"
#include "host/cli/OptionsCommand.h"
#include "host/cli/OutputFiles.h"
#include "host/cli/Progress.h"
#include "host/cli/RunJson.h"
#include "host/cli/RunSummary.h"
#include "host/cli/StopSignals.h"
#include "host/cli/UsageError.h"
#include "host/cli/ValueParsers.h"
#include "host/cli/Version.h"
#include "host/drive/DriveError.h"
#include "host/run/ConfigurationError.h"

namespace corvane::host {
namespace {

constexpr std::chrono::milliseconds terminalInterval{500};
constexpr std::chrono::milliseconds lineInterval{2000};

/// Shows a test's status again and again, on a thread of its own, until destroyed.
class StatusReporter {
 public:
  StatusReporter(Console& out, const TestRun& run, const AgentLines& lines, const StopSignals& signals,
                 uint64_t timeLimitMs)
      : out_(out), thread_([this, &run, &lines, &signals, timeLimitMs](const std::stop_token& stop) {
          Progress progress(timeLimitMs);
          while (!waitFor(stop)) {
            out_.status(progress.next(run.progress(), lines.findings(), signals.received()));
          }
        }) {}
  ~StatusReporter() {
    thread_.request_stop();
    thread_.join();
    out_.clearStatus();
  }
  StatusReporter(const StatusReporter&) = delete;
  StatusReporter& operator=(const StatusReporter&) = delete;

 private:
  /// @return whether to stop
  bool waitFor(const std::stop_token& stop) {
    std::unique_lock lock(mutex_);
    const auto interval = out_.isTerminal() ? terminalInterval : lineInterval;
    wake_.wait_for(lock, stop, interval, [] { return false; });
    return stop.stop_requested();
  }

  Console& out_;
  std::mutex mutex_;
  std::condition_variable_any wake_;
  std::jthread thread_;  // last: it uses the others
};

std::string limitsText(const TestDefinition& test) {
  std::string text;
  if (test.timeLimitMs != 0) {
    text = durationFlagText(test.timeLimitMs);
  }
  if (test.commandLimit != 0) {
    text += (text.empty() ? "" : " or ") + groupedNumber(test.commandLimit) + " commands";
  }
  return text;
}

void introduce(Console& out, const RunSettings& settings, const TestRun& run) {
  const TestDefinition& test = settings.test;
  out.line(std::string("Corvane ") + programVersion() + ", seed " + std::to_string(test.seed) +
           (settings.seedDrawn ? " (drawn; --seed " + std::to_string(test.seed) + " repeats it)" : ""));
  for (const DriveIntroduction& drive : run.drives()) {
    out.line("Drive " + printable(drive.name) + ": " + printable(drive.description));
    out.line("  LBAs " + std::to_string(drive.firstLba) + ".." + std::to_string(drive.endLba) + " of " +
             std::to_string(drive.geometry.blocks));
  }
  out.line("Test: " + commandMixText(test.mix) + "; " + std::to_string(test.minBlocks) + ".." +
           std::to_string(test.maxBlocks) + " blocks, queue depth " + std::to_string(test.queueDepth) + ", LBA agent " +
           test.lbaAgent + ", " + limitsText(test));
  for (const std::string& warning : run.warnings()) {
    out.line("warning: " + printable(warning));
  }
}

std::string outputText(const RunSettings& settings) {
  return "Output: reports and dumps in " + printable(settings.test.outputDirectory) + "/, result in " +
         printable(settings.jsonPath);
}

void prepareOutput(const RunSettings& settings, NewPaths& made) {
  made.watch(settings.test.outputDirectory);
  prepareOutputDirectory("--output", settings.test.outputDirectory);
  checkReplaceable(settings.jsonGiven ? "--json" : "--output", settings.jsonPath);
}

/// The flag that a refusal is about; empty when no single one is.
std::string flagOf(std::string_view refusal, const TestDefinition& test) {
  const bool rangeGiven = test.firstLba != 0 || test.endLba != 0;
  const std::array<std::pair<std::string_view, std::string_view>, 9> beginnings{
      {{"the LBA range", rangeGiven ? "--range" : "--xfer"},
       {"transfers of", "--xfer"},
       {"drive '", "--drive"},
       {"queue depth", "--queue-depth"},
       {"zone resets", "--zone-reset-every"},
       {"invalidations", "--invalidate-every"},
       {"atomic writes need reads", "--commands-of"},
       {"an atomic write and its bound", "--atomic-bound"},
       {"a power cut would", "--power-toggle"}}};
  for (const auto& [beginning, flag] : beginnings) {
    if (refusal.starts_with(beginning)) {
      return std::string(flag) + ": ";
    }
  }
  return {};
}

std::unique_ptr<TestRun> openTest(const RunSettings& settings, AgentLines& lines, RunSurroundings surroundings) {
  try {
    return std::make_unique<TestRun>(settings.test, &lines, std::move(surroundings));
  } catch (const ConfigurationError& error) {
    throw UsageError(flagOf(error.what(), settings.test) + error.what());
  } catch (const DriveAddressError& error) {
    throw UsageError(std::string("--drive: ") + error.what());
  } catch (const DriveError& error) {
    if (settings.jsonGiven) {
      replaceFile("--json", settings.jsonPath, failedRunJson(settings, RunStatus::drive, error.what()));
    }
    throw;
  }
}

void checkAgent(const RunSettings& settings) {
  try {
    checkOptionSettings("--set", settings.test.pluginPath, settings.test.agentOptions);
  } catch (const ConfigurationError& error) {
    throw UsageError("--plugin '" + settings.test.pluginPath + "': " + error.what());
  }
}

/// What was found must still be told when the document cannot be written: so this is no exception.
bool writeResult(const RunSettings& settings, const std::string& document) {
  try {
    replaceFile(settings.jsonGiven ? "--json" : "--output", settings.jsonPath, document);
    return true;
  } catch (const UsageError& error) {
    std::fprintf(stderr, "corvane: %s\n", printable(error.what()).c_str());
    return false;
  }
}

RunResult runWithStatus(TestRun& run, Console& out, const AgentLines& lines, const RunSettings& settings) {
  const StopSignals signals(run);
  if (settings.quiet) {
    return run.run();
  }
  const StatusReporter status(out, run, lines, signals, settings.test.timeLimitMs);
  return run.run();
}

}  // namespace

int runTest(const RunSettings& settings, Console& out, RunSurroundings surroundings) {
  if (surroundings.agent == nullptr) {
    checkAgent(settings);
  }
  NewPaths made;
  for (const std::string& address : settings.test.driveAddresses) {
    made.watchDrive(address);
  }
  AgentLines lines(out);
  const std::unique_ptr<TestRun> run = openTest(settings, lines, std::move(surroundings));
  NewPaths usualFolder;  // goes again when nothing was put into it
  if (!settings.outputGiven) {
    usualFolder.watch(settings.test.outputDirectory);
  }
  prepareOutput(settings, made);
  made.keep();
  const std::vector<DriveIntroduction> drives = run->drives();
  std::vector<std::string> names;
  names.reserve(drives.size());
  for (const DriveIntroduction& drive : drives) {
    names.push_back(drive.name);
  }
  lines.setDrives(std::move(names));
  if (!settings.quiet) {
    introduce(out, settings, *run);
  }
  if (!settings.quiet || !settings.outputGiven) {
    out.line(outputText(settings));
  }
  const RunResult result = runWithStatus(*run, out, lines, settings);
  const bool written = writeResult(settings, runJson(settings, drives, run->warnings(), result));
  if (!settings.quiet || result.status != RunStatus::clean) {
    out.write(summaryText(settings, result));
  }
  return written || result.status != RunStatus::clean ? exitStatusOf(result.status) : exit_status::internal;
}

}  // namespace corvane::host
