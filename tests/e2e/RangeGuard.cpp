#include "tests/e2e/RangeGuard.h"

#include <utility>

namespace corvane::host::e2e {
namespace {

/// For every sum and product of what a test and a command can say.
__extension__ using Wide = unsigned __int128;

}  // namespace

GivenRange GivenRange::of(const TestDefinition& test, const DriveGeometry& drive) {
  GivenRange given{.firstLba = test.firstLba, .endLba = drive.blocks};
  if (test.endLba != 0) {
    given.endLba = test.endLba;
  } else if (test.size.bytes != 0) {
    given.endLba = test.firstLba + test.size.bytes / drive.blockSize;
  } else if (test.size.milliPercent != 0) {
    constexpr unsigned wholeDrive = 100'000;
    const Wide blocks = Wide{drive.blocks} * test.size.milliPercent / wholeDrive;
    given.endLba = test.firstLba + static_cast<uint64_t>(blocks);
  }
  return given;
}

void Trespasses::add(const std::string& sentence) {
  const std::lock_guard lock(mutex_);
  ++count_;
  if (first_.size() < kept) {
    first_.push_back(sentence);
  }
}

std::string Trespasses::text() const {
  const std::lock_guard lock(mutex_);
  std::string all;
  for (const std::string& sentence : first_) {
    all += sentence + "\n";
  }
  return count_ > first_.size() ? all + "and " + std::to_string(count_ - first_.size()) + " more\n" : all;
}

RangeGuard::RangeGuard(std::unique_ptr<Drive> drive, GivenRange range, Trespasses& trespasses)
    : ForwardingDrive(std::move(drive)), range_(range), trespasses_(trespasses) {}

void RangeGuard::submit(const DriveCommand& command) {
  if (changesMedium(command.kind) && !isInside(command)) {
    trespasses_.add(std::string(commandKindName(command.kind)) + " of " + std::to_string(command.blocks) +
                    " blocks, step " + std::to_string(command.lbaStep) + ", at LBA " + std::to_string(command.lba) +
                    ", but the test was given " + std::to_string(range_.firstLba) + ".." +
                    std::to_string(range_.endLba));
  }
  inner().submit(command);
}

bool RangeGuard::isInside(const DriveCommand& command) const {
  if (command.blocks == 0) {
    return true;
  }
  const Wide last = Wide{command.lba} + Wide{command.blocks - 1} * command.lbaStep;
  return command.lba >= range_.firstLba && last < range_.endLba;
}

}  // namespace corvane::host::e2e
