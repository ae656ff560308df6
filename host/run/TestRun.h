#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "host/drive/Drive.h"
#include "host/drive/Overwriting.h"
#include "host/run/CheckAccount.h"
#include "host/run/RunObserver.h"
#include "host/run/RunResult.h"
#include "host/run/TestDefinition.h"
#include "vdl/Agent.h"

namespace corvane::host {

class HostClock;

/// What a test run uses of the world; every member has a default that is the real thing.
struct RunSurroundings {
  std::function<std::unique_ptr<Drive>(std::string_view address, uint32_t maxOutstanding, uint64_t seed,
                                       Overwriting overwriting)>
      openDrive;
  const vdl::AgentTable* agent = nullptr;  ///< used instead of the definition's plug-in; must outlive the run
  HostClock* clock = nullptr;              ///< must outlive the run
  std::function<void()> onDriveThread;     ///< called first on each drive's thread
  WorthListener worthListener;             ///< called on each drive's thread
};

/// What there is to say about a drive before its test starts.
struct DriveIntroduction {
  std::string name;
  std::string address;
  std::string description;
  DriveGeometry geometry;
  uint64_t firstLba = 0;  ///< the range that is tested
  uint64_t endLba = 0;    ///< excluded
};

/// Where one drive's test stands.
struct DriveProgress {
  DriveTotals totals;
  bool ended = false;
  RunStatus status = RunStatus::clean;  ///< how it ended
};

/// Where the test stands.
struct ProgressSnapshot {
  DriveTotals totals;                 ///< the sums of all drives
  std::vector<DriveProgress> drives;  ///< by index
  uint64_t elapsedMs = 0;
  uint32_t drivesRunning = 0;
};

/// One test: an agent, its options, and one thread for each drive.
///
/// The constructor does everything that can be refused: it loads the plug-in, sets the options, checks the test
/// against what the agent demands of a host, and opens the drives. Nothing is written to a drive before `run`.
class TestRun {
 public:
  /// @param observer null or outlives the object
  ///
  /// Throws ConfigurationError for a test that cannot be run, DriveAddressError for a drive that nobody can open,
  /// DriveError for one that does not open or lacks a command that the test needs.
  explicit TestRun(TestDefinition definition, RunObserver* observer = nullptr, RunSurroundings surroundings = {});
  ~TestRun();
  TestRun(const TestRun&) = delete;
  TestRun& operator=(const TestRun&) = delete;

  /// Sentences about what weakens this test or makes it costly, for people.
  const std::vector<std::string>& warnings() const;
  std::vector<DriveIntroduction> drives() const;

  /// Runs the test on all drives and returns when the last one has ended. Call it once.
  ///
  /// A drive that fails or a finding ends that drive's test only.
  RunResult run();

  /// Lets every drive finish what is outstanding and stop. Any thread; also from a signal handler.
  void requestStop() noexcept;

  /// Any thread, at any time.
  ProgressSnapshot progress() const;

 private:
  struct State;
  std::shared_ptr<State> state_;  ///< shared with the thread of a drive that hangs
};

}  // namespace corvane::host
