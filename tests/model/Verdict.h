#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "tests/model/Medium.h"

namespace refmodel {

/// What a finding leaves in the trace of commands.
struct TracedMiscompare {
  uint64_t lba = 0;
  uint64_t id = 0;
  uint32_t expected = 0;
  uint32_t found = 0;
  bool flag = false;
  bool operator==(const TracedMiscompare&) const = default;
};

/// Everything that may be seen of one action: what was answered, said and left behind.
struct Verdict {
  int status = 0;
  std::vector<std::string> log;  ///< lines of the event log, which are errors all
  std::string output;            ///< to standard output
  std::string errors;            ///< to standard error
  std::optional<TracedMiscompare> traced;
  std::string history;  ///< the text kept for the report
  Bytes driveDump;      ///< the block as the drive returned it
  Bytes referenceDump;  ///< the block as it had to be
  bool operator==(const Verdict&) const = default;

  bool silent() const { return *this == Verdict{}; }
};

/// A verdict for people.
std::string describe(const Verdict& verdict);

/// How operations log a status with the framework's text for it: "operation(): text (status)".
using StatusLine = std::function<std::string(const char* operation, int status)>;

}  // namespace refmodel
