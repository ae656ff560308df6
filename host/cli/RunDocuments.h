#pragma once

#include <exception>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "host/cli/RunSettings.h"
#include "host/explain/Explanation.h"
#include "host/run/RunResult.h"
#include "host/run/TestRun.h"

namespace corvane::host {

/// The documents that a run leaves for programs: the JSON document always, the JUnit document when it is asked for.
///
/// From the moment that the test begins there is a valid JSON document, whatever happens: an unfinished one at first,
/// which is replaced by the result.
class RunDocuments {
 public:
  /// @param settings outlives the object
  explicit RunDocuments(const RunSettings& settings) : settings_(settings) {}

  /// Sees to it that they can be written, without touching them. Throws UsageError.
  void check() const;

  /// Leaves the unfinished document. Throws UsageError when it cannot be written.
  void begin(const std::vector<std::string>& warnings);

  /// Leaves the error of a run that could not begin, or broke off as a whole. Before `begin` only in files that were
  /// asked for by name, and only where they can be written: the error itself is what its user has to hear of.
  void fail(RunStatus status, std::string_view error);

  /// Leaves the result. What was found must still be told when a document cannot be written: so that is no exception
  /// but a line on the error stream.
  ///
  /// @param explanations as `runJson` takes them
  ///
  /// @return whether all were written
  bool finish(const std::vector<DriveIntroduction>& drives, const std::vector<std::string>& warnings,
              const RunResult& result, const std::vector<std::optional<Explanation>>& explanations = {});

 private:
  const RunSettings& settings_;
  bool begun_ = false;
};

/// The status of a run that an exception ended.
RunStatus runStatusOf(const std::exception& error);

}  // namespace corvane::host
