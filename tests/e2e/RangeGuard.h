#pragma once

#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "host/drive/ForwardingDrive.h"
#include "host/run/TestDefinition.h"

namespace corvane::host::e2e {

/// LBAs that a user gave a test; the end is not included.
struct GivenRange {
  uint64_t firstLba = 0;
  uint64_t endLba = 0;

  /// What the user's words mean on a drive, worked out here once more and not asked of the code that is watched.
  static GivenRange of(const TestDefinition& test, const DriveGeometry& drive);
};

/// What was sent to places that no test was given, one sentence each. Any thread.
class Trespasses {
 public:
  void add(const std::string& sentence);
  /// All of them, a line each, the first few of many; empty when there was none.
  std::string text() const;

 private:
  static constexpr size_t kept = 8;

  mutable std::mutex mutex_;
  std::vector<std::string> first_;
  uint64_t count_ = 0;
};

/// Watches that nothing which changes the medium leaves a range: writes of every kind, trims, zone operations and
/// invalidations, block by block where a command leaves blocks out.
///
/// It only watches: what it complains of reaches the drive all the same. Reads may go anywhere.
class RangeGuard : public ForwardingDrive {
 public:
  /// @param trespasses outlives the object
  RangeGuard(std::unique_ptr<Drive> drive, GivenRange range, Trespasses& trespasses);

  void submit(const DriveCommand& command) override;

 private:
  bool isInside(const DriveCommand& command) const;

  const GivenRange range_;
  Trespasses& trespasses_;
};

}  // namespace corvane::host::e2e
