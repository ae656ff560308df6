#pragma once

#include <cstdint>
#include <stdexcept>
#include <string>
#include <string_view>

#include "host/fault/FaultClass.h"

namespace corvane::host {

/// A fault description that nobody can follow; the text names the wrong piece and what would be accepted.
class FaultSpecError : public std::invalid_argument {
 public:
  using std::invalid_argument::invalid_argument;
};

/// When a faulty drive does what wrong.
struct FaultSpec {
  FaultClass what = FaultClass::lostWrite;
  double rate = 0;         ///< probability at each command that the fault can strike, when `atCommand` is 0
  uint64_t atCommand = 0;  ///< strikes the first command that it can from this one on, counted from 1; 0: `rate`
  uint64_t most = 0;       ///< ends after so many; 0: no limit
  uint32_t drive = 0;      ///< the drive it is about, counted from 1; 0: every drive

  bool operator==(const FaultSpec&) const = default;
};

/// Reads "CLASS:rate=R" or "CLASS:at=command:N", with further keys `most=N` and `drive=N` behind commas. With `at`
/// the fault strikes once unless `most` is given, with `rate` as often as it comes.
///
/// Throws FaultSpecError for an unknown class or key, a rate outside 0 to 1, a number that is none, or neither of
/// `rate` and `at`.
FaultSpec parseFaultSpec(std::string_view text);

/// The text that `parseFaultSpec` reads back.
std::string faultSpecText(const FaultSpec& spec);

/// Every class with its line, for `--help` and the documents.
std::string faultClassesHelp();

}  // namespace corvane::host
