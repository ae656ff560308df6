#pragma once

#include <functional>
#include <memory>
#include <string>
#include <string_view>

#include "host/run/HostClock.h"
#include "host/run/TestRun.h"
#include "tests/e2e/RangeGuard.h"
#include "tests/support/TempFolder.h"

namespace corvane::host::e2e {

using Workspace = tests::TempFolder;

/// A clock that runs as fast as the commands do: each look at it moves it on, whoever looks. So power cuts and other
/// things that come by the second come by the thousand commands, and a seed gives the same times twice.
class VirtualClock : public HostClock {
 public:
  uint64_t wallUs() override;
  /// From now on the clock begins at the same time again, and so for the agent too.
  static void restart();
};

/// The definition with what every end-to-end test has in common: the built agent, and a folder for reports.
TestDefinition prepared(TestDefinition test, const Workspace& workspace);

/// Where the built agent is.
std::string agentPath();

/// Puts a drive of the test's own in front of the one that the address names.
using Wrap = std::function<std::unique_ptr<Drive>(std::unique_ptr<Drive>)>;

/// Opens the drives of a test behind guards of the range that the test was given. For `RunSurroundings::openDrive`.
///
/// @param test       is copied
/// @param trespasses outlives the drives
std::function<std::unique_ptr<Drive>(std::string_view, uint32_t, uint64_t, Overwriting)> guardedDrives(
    const TestDefinition& test, const Wrap& wrap, Trespasses& trespasses);

/// Runs the test with the virtual clock and its drives behind guards, which also stand in front of a drive of the
/// test's own. Throws std::logic_error when something that changes the medium left the range of the test.
///
/// @param agent    used instead of the definition's plug-in
/// @param listener told what each judged block was worth
RunResult runTest(const TestDefinition& test, const Wrap& wrap = {}, const vdl::AgentTable* agent = nullptr,
                  const WorthListener& listener = {});

/// Every line of level 1 and 2, for a failure's message.
std::string agentLines(const RunResult& result);

/// The file's content. Throws when it cannot be read.
std::string contentOf(const std::string& path);

}  // namespace corvane::host::e2e
