#pragma once

#include <optional>
#include <string>
#include <vector>

#include "host/cli/Console.h"
#include "host/cli/RecordedRun.h"
#include "host/run/RunResult.h"

namespace CLI {
class App;
}

namespace corvane::host {

inline constexpr const char* usualReplayDirectory = "corvane-replay";

/// What `corvane replay` was asked for.
struct ReplayRequest {
  std::string document;  ///< JSON document of a run
  size_t finding = 1;    ///< which of its findings, counted from 1
  std::string output = usualReplayDirectory;
  std::string plugin;      ///< empty: the run's
  bool overwrite = false;  ///< as the run's flag, whatever the run was given
};

/// The words of `corvane replay`.
class ReplayCommandLine {
 public:
  /// Adds the flags; `replay` outlives the object, and the object the parsing.
  explicit ReplayCommandLine(CLI::App& replay);
  ReplayCommandLine(const ReplayCommandLine&) = delete;
  ReplayCommandLine& operator=(const ReplayCommandLine&) = delete;

  /// Throws UsageError.
  ReplayRequest request() const;

 private:
  std::vector<std::string> files_;
  std::vector<std::string> finding_;
  std::vector<std::string> output_;
  std::vector<std::string> plugin_;
  bool overwrite_ = false;
};

/// The run's test up to the step of the finding, without its other limits. Throws UsageError.
RunSettings replaySettings(const RecordedRun& document, const ReplayRequest& request);

/// Sentences about what in the test follows the clock or the machine, so that a replay may go another way.
std::vector<std::string> unrepeatable(const TestDefinition& test);

/// One line about whether a finding came again at the same drive, command and LBA, and else what differs.
std::string replayVerdict(const RecordedFinding& wanted, const RunResult& result);

/// `corvane replay`: runs the test of a document again up to a finding and says whether it came again. Returns the exit
/// status of that run.
///
/// Throws as `runTest`, and UsageError for a document that cannot be replayed.
int runReplay(const ReplayRequest& request, Console& out);

}  // namespace corvane::host
