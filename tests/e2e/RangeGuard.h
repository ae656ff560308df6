#pragma once

#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "host/drive/Drive.h"
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
class RangeGuard : public Drive {
 public:
  /// @param trespasses outlives the object
  RangeGuard(std::unique_ptr<Drive> inner, GivenRange range, Trespasses& trespasses);

  const DriveGeometry& geometry() const override { return inner_->geometry(); }
  const DriveCapabilities& capabilities() const override { return inner_->capabilities(); }
  std::string description() const override { return inner_->description(); }
  uint32_t maxOutstanding() const override { return inner_->maxOutstanding(); }
  void submit(const DriveCommand& command) override;
  bool poll(DriveCompletion& out, bool wait) override { return inner_->poll(out, wait); }
  void reset() override { inner_->reset(); }
  void powerCycle() override { inner_->powerCycle(); }
  void useMemory(uint8_t* data, uint64_t bytes) noexcept override { inner_->useMemory(data, bytes); }
  void sendQueued() override { inner_->sendQueued(); }
  int sendVendorRequest(const uint8_t* block, uint32_t bytes) override {
    return inner_->sendVendorRequest(block, bytes);
  }

 private:
  bool isInside(const DriveCommand& command) const;

  std::unique_ptr<Drive> inner_;
  const GivenRange range_;
  Trespasses& trespasses_;
};

}  // namespace corvane::host::e2e
