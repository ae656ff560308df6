#pragma once

#include <cstdint>
#include <string_view>

namespace corvane::host {

struct DriveResult;
struct Finding;

/// Gets told what happens while a test runs; what it does not care for it need not override.
///
/// Called on the drives' threads, several at once when there are several drives: an implementation does its own
/// locking, returns soon and throws nothing. What is told of one drive is told in the order in which it happened, and
/// nothing after `onDriveEnd`.
class RunObserver {
 public:
  virtual ~RunObserver() = default;

  /// The agent logged a line: 0 information, 1 warning, 2 error.
  virtual void onAgentLine(uint32_t driveIndex, int level, std::string_view text) {
    (void)driveIndex, (void)level, (void)text;
  }
  /// The drive was reset, by the test's wish or the agent's.
  virtual void onReset(uint32_t driveIndex) { (void)driveIndex; }
  /// The drive lost power and has it again.
  virtual void onPowerCycle(uint32_t driveIndex) { (void)driveIndex; }
  /// The way to the drive broke and took what was outstanding; the drive is reset next. `cause` is one line.
  virtual void onConnectionLost(uint32_t driveIndex, std::string_view cause) { (void)driveIndex, (void)cause; }
  /// The drive did not hold what it had to hold; its reports and dumps are written.
  virtual void onFinding(uint32_t driveIndex, const Finding& finding) { (void)driveIndex, (void)finding; }
  /// The drive's part of the test is over.
  virtual void onDriveEnd(uint32_t driveIndex, const DriveResult& result) { (void)driveIndex, (void)result; }

  /// One that cares for nothing.
  static RunObserver& none() {
    static RunObserver nobody;
    return nobody;
  }
};

}  // namespace corvane::host
