#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "host/run/TestRun.h"

namespace corvane::host {

/// What the status of a test needs to know of it beside where it stands.
struct ProgressFacts {
  std::vector<std::string> drives;  ///< display names, by index
  uint32_t queueDepth = 0;
  uint64_t timeLimitMs = 0;   ///< 0: none
  uint64_t commandLimit = 0;  ///< a drive; 0: none
};

/// Makes the status of a running test, one line a drive; rates are those since the status before.
class Progress {
 public:
  explicit Progress(ProgressFacts facts);

  /// e.g. "sim0  0:12, 0:18 left  0 findings  32 of 32 outstanding  compared  208.9 MB/s  408k blocks/s  written  …".
  ///
  /// What is most likely to be looked for stands first, as a narrow terminal shows no more.
  ///
  /// @param found whether there was a finding, by drive
  std::vector<std::string> next(const ProgressSnapshot& now, const std::vector<bool>& found, bool stopping);

 private:
  struct Figures {
    uint64_t blocks = 0;
    uint64_t bytes = 0;
  };
  /// What rates are made of.
  struct Marks {
    Figures compared;
    Figures written;
    Figures read;
  };
  static Marks marksOf(const DriveTotals& totals);
  static std::string rates(const char* name, const Figures& now, const Figures& before, uint64_t ms);
  std::string timeText(const DriveProgress& drive, uint64_t elapsedMs) const;
  std::string line(size_t index, const DriveProgress& drive, uint64_t elapsedMs, bool found, bool stopping);

  const ProgressFacts facts_;
  size_t nameWidth_ = 0;
  uint64_t lastMs_ = 0;
  std::vector<Marks> last_;
};

}  // namespace corvane::host
