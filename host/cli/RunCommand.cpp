#include "host/cli/RunCommand.h"

#include <array>
#include <atomic>
#include <chrono>
#include <exception>
#include <memory>
#include <optional>
#include <string_view>
#include <thread>
#include <utility>

#include "host/base/TextFormat.h"
#include "host/cli/AgentLines.h"
#include "host/cli/EventStream.h"
#include "host/cli/ExitStatus.h"
#include "host/cli/NewPaths.h"
#include "host/cli/ObserverList.h"
#include "host/cli/OptionsCommand.h"
#include "host/cli/OutputFiles.h"
#include "host/cli/PeriodicReport.h"
#include "host/cli/RunDocuments.h"
#include "host/cli/RunSummary.h"
#include "host/cli/StopSignals.h"
#include "host/cli/TestFile.h"
#include "host/cli/UsageError.h"
#include "host/cli/ValueParsers.h"
#include "host/cli/Version.h"
#include "host/drive/DriveAddress.h"
#include "host/drive/DriveError.h"
#include "host/explain/Explainer.h"
#include "host/run/ConditionSet.h"
#include "host/run/ConfigurationError.h"
#include "host/run/HostClock.h"

namespace corvane::host {
namespace {

/// Tells where a test stands, on a thread of its own, until destroyed.
class ReportThread {
 public:
  /// All parameters outlive the object.
  ReportThread(PeriodicReport& report, const StopSignals& signals, HostClock& clock)
      : report_(report), signals_(signals), clock_(clock), thread_([this] { tellUntilDone(); }) {}
  ~ReportThread() {
    done_.store(true);
    signals_.wake();
    thread_.join();
  }
  ReportThread(const ReportThread&) = delete;
  ReportThread& operator=(const ReportThread&) = delete;

 private:
  void tellUntilDone() {
    const uint64_t beganUs = clock_.steadyUs();
    while (!done_.load()) {
      const uint64_t dueMs = report_.tell((clock_.steadyUs() - beganUs) / 1000, signals_.received());
      signals_.wait(std::chrono::milliseconds(dueMs));
    }
  }

  PeriodicReport& report_;
  const StopSignals& signals_;
  HostClock& clock_;
  std::atomic<bool> done_{false};
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
  if (test.stepLimit != 0) {
    text += (text.empty() ? "" : " or ") + groupedNumber(test.stepLimit) + " steps";
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
  out.line("Test: " + commandMixText(mixUnder(test.mix, test.conditions)) + "; " + std::to_string(test.minBlocks) +
           ".." + std::to_string(test.maxBlocks) + " blocks, queue depth " + std::to_string(test.queueDepth) +
           ", LBA agent " + test.lbaAgent + ", " + limitsText(test));
  for (const std::string& warning : run.warnings()) {
    out.line("warning: " + printable(warning));
  }
}

std::string outputText(const RunSettings& settings) {
  return "Output: reports and dumps in " + printable(settings.test.outputDirectory) + "/, result in " +
         printable(settings.jsonPath);
}

/// The step or the condition that a refusal begins with, when it was said something of.
std::string conditionSettingOf(std::string_view refusal, const RunSettings& settings) {
  const std::array<std::pair<std::string_view, const char*>, 5> beginnings{
      {{"nothing ever sets the condition '", "condition"},
       {"the test takes the step '", "step"},
       {"the test does not take the step '", "step"},
       {"the steps '", "step"},
       {"the step '", "step"}}};
  for (const auto& [beginning, key] : beginnings) {
    if (refusal.starts_with(beginning)) {
      const std::string_view rest = refusal.substr(beginning.size());
      const auto place = settings.entryPlaces.find({key, std::string(rest.substr(0, rest.find('\'')))});
      return place == settings.entryPlaces.end() ? "" : place->second + ": ";
    }
  }
  return {};
}

/// The setting that a refusal is about; empty when no single one is.
std::string settingOf(std::string_view refusal, const RunSettings& settings) {
  const TestDefinition& test = settings.test;
  const std::string_view place = test.size.any() ? "size" : "range";
  const bool placeGiven = test.firstLba != 0 || test.endLba != 0 || test.size.any();
  const std::string_view mix = test.conditions.random.empty() ? "commands-of" : "random";
  const std::array<std::pair<std::string_view, std::string_view>, 11> beginnings{
      {{"the LBA range", placeGiven ? place : "xfer"},
       {"transfers of", "xfer"},
       {"drive '", "drive"},
       {"queue depth", "queue-depth"},
       {"zone resets", "zone-reset-every"},
       {"invalidations", "invalidate-every"},
       {"atomic writes need reads", mix},
       {"two random conditions set", "random"},
       {"the phases and random conditions of the test", "phase"},
       {"an atomic write and its bound", "atomic-bound"},
       {"a power cut would", "power-toggle"}}};
  for (const auto& [beginning, key] : beginnings) {
    if (refusal.starts_with(beginning)) {
      return nameOf(settings, key) + ": ";
    }
  }
  return conditionSettingOf(refusal, settings);
}

/// What a message calls the drive that a refusal is about.
std::string nameOfDriveIn(const std::string& refusal, const RunSettings& settings) {
  for (const std::string& address : settings.test.driveAddresses) {
    if (refusal.find("'" + maskedAddress(address) + "'") != std::string::npos) {
      return nameOfEntry(settings, "drive", address);
    }
  }
  return nameOf(settings, "drive");
}

/// The test with a journal, so that what it finds can be explained.
TestDefinition rememberingTest(const RunSettings& settings) {
  constexpr uint32_t rememberedCommands = 1U << 15;
  TestDefinition test = settings.test;
  test.journalDepth = rememberedCommands;
  return test;
}

void checkAgent(const RunSettings& settings) {
  try {
    checkOptionSettings(settings.test.pluginPath, settings.test.agentOptions,
                        [&](const std::string& option) { return nameOfEntry(settings, "set", option); });
  } catch (const ConfigurationError& error) {
    throw UsageError(nameOf(settings, "plugin") + " '" + settings.test.pluginPath + "': " + error.what());
  }
}

/// An output that overwrites another one, or what is tested, is refused before anything is written.
void checkOutputsDistinct(const RunSettings& settings) {
  std::vector<std::string> drives;
  for (const std::string& address : settings.test.driveAddresses) {
    drives.push_back(fileOfDrive(address));
  }
  checkDistinct(drives, {{nameOfJson(settings), settings.jsonPath},
                         {nameOf(settings, "events"), settings.eventsPath},
                         {nameOf(settings, "junit"), settings.junitPath}});
}

std::vector<std::optional<Explanation>> explainAll(const RunResult& result) {
  std::vector<std::optional<Explanation>> explanations;
  for (size_t drive = 0; drive < result.drives.size(); ++drive) {
    explanations.push_back(explainDrive(result, drive));
  }
  return explanations;
}

/// One run, from the opening of the drives to its summary.
class Session {
 public:
  Session(const RunSettings& settings, Console& out, RunDocuments& documents, RunSurroundings surroundings)
      : settings_(settings),
        out_(out),
        documents_(documents),
        clock_(surroundings.clock != nullptr ? *surroundings.clock : HostClock::real()),
        lines_(out) {
    observers_.add(lines_);
    if (surroundings.agent == nullptr) {
      checkAgent(settings);
    }
    NewPaths made;
    for (const std::string& address : settings.test.driveAddresses) {
      made.watchDrive(address);
    }
    run_ = openTest(std::move(surroundings));
    if (!settings.outputGiven) {
      usualFolder_.watch(settings.test.outputDirectory);
    }
    prepareOutput(made);
    made.keep();
    drives_ = run_->drives();
    lines_.setDrives(driveNames());
  }

  /// @return the exit status
  int carryOut(const std::function<void(const RunResult&)>& onResult) {
    if (!settings_.quiet) {
      introduce(out_, settings_, *run_);
    }
    if (!settings_.quiet || !settings_.outputGiven) {
      out_.line(outputText(settings_));
    }
    documents_.begin(run_->warnings());
    const StopSignals signals(*run_);  // until the documents are written
    const RunResult result = runAndReport(signals);
    const std::vector<std::optional<Explanation>> explanations = explainAll(result);
    // The verdict first: whatever becomes of the documents, it has been said.
    if (!settings_.quiet || result.status != RunStatus::clean) {
      out_.write(summaryText(settings_, result, explanations));
    }
    const bool written = documents_.finish(drives_, run_->warnings(), result, explanations);
    if (onResult) {
      onResult(result);
    }
    return written || result.status != RunStatus::clean ? exitStatusOf(result.status) : exit_status::internal;
  }

 private:
  std::unique_ptr<TestRun> openTest(RunSurroundings surroundings) {
    try {
      return std::make_unique<TestRun>(rememberingTest(settings_), &observers_, std::move(surroundings));
    } catch (const ConfigurationError& error) {
      throw UsageError(settingOf(error.what(), settings_) + error.what());
    } catch (const DriveAddressError& error) {
      throw UsageError(nameOfDriveIn(error.what(), settings_) + ": " + error.what());
    }
  }

  void prepareOutput(NewPaths& made) {
    made.watch(settings_.test.outputDirectory);
    prepareOutputDirectory(nameOf(settings_, "output"), settings_.test.outputDirectory);
    documents_.check();
    if (settings_.eventsPath.empty()) {
      return;
    }
    made.watch(settings_.eventsPath);
    events_ = std::make_unique<EventStream>(
        std::make_unique<EventFile>(nameOf(settings_, "events"), settings_.eventsPath), clock_,
        [this](const std::string& cause) {
          out_.line("warning: " + nameOf(settings_, "events") + " '" + printable(settings_.eventsPath) +
                    "' cannot be written: " + cause + "; the test goes on, events are missing");
        });
    observers_.add(*events_);
  }

  std::vector<std::string> driveNames() const {
    std::vector<std::string> names;
    names.reserve(drives_.size());
    for (const DriveIntroduction& drive : drives_) {
      names.push_back(drive.name);
    }
    return names;
  }

  RunResult runAndReport(const StopSignals& signals) {
    if (events_ != nullptr) {
      events_->start({.version = programVersion(),
                      .seed = settings_.test.seed,
                      .seedDrawn = settings_.seedDrawn,
                      .repeat = repeatCommand(settings_),
                      .warnings = run_->warnings(),
                      .drives = drives_});
    }
    try {
      RunResult result = runWithReport(signals);
      tellEnd(
          {.status = result.status, .exitStatus = exitStatusOf(result.status), .stopped = result.stopped, .error = ""});
      return result;
    } catch (const std::exception& error) {
      const RunStatus status = runStatusOf(error);
      tellEnd({.status = status, .exitStatus = exitStatusOf(status), .stopped = false, .error = error.what()});
      throw;
    }
  }

  RunResult runWithReport(const StopSignals& signals) {
    const TestDefinition& test = settings_.test;
    PeriodicReport report({.progress = [this] { return run_->progress(); }, .found = [this] { return lines_.found(); }},
                          {.drives = driveNames(),
                           .queueDepth = test.queueDepth,
                           .timeLimitMs = test.timeLimitMs,
                           .commandLimit = test.commandLimit},
                          settings_.quiet ? nullptr : &out_, events_.get());
    RunResult result;
    {
      const ReportThread thread(report, signals, clock_);
      result = run_->run();
    }
    report.tellStop(signals.received());  // one that came last of all
    return result;
  }

  void tellEnd(const EndEvent& end) {
    if (events_ != nullptr) {
      events_->end(end);
    }
  }

  const RunSettings& settings_;
  Console& out_;
  RunDocuments& documents_;
  HostClock& clock_;
  NewPaths usualFolder_;  // goes again when nothing was put into it
  AgentLines lines_;
  std::unique_ptr<EventStream> events_;
  ObserverList observers_;
  std::unique_ptr<TestRun> run_;  // it uses the observers
  std::vector<DriveIntroduction> drives_;
};

}  // namespace

int showResolvedTest(const RunSettings& settings, Console& out) {
  checkAgent(settings);
  out.write(testFileText(settings));
  return exit_status::clean;
}

int runTest(const RunSettings& settings, Console& out, RunSurroundings surroundings,
            const std::function<void(const RunResult&)>& onResult) {
  checkOutputsDistinct(settings);
  RunDocuments documents(settings);
  try {
    return Session(settings, out, documents, std::move(surroundings)).carryOut(onResult);
  } catch (const std::exception& error) {
    documents.fail(runStatusOf(error), error.what());
    throw;
  }
}

}  // namespace corvane::host
