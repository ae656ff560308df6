#pragma once

#include <cstdint>
#include <string>

#include "host/fault/FaultClass.h"
#include "host/run/RunResult.h"

namespace corvane::host {

/// What one test run says of the fault that was injected into it.
enum class Verdict : uint8_t {
  named,       ///< found where it was, and called what it was
  found,       ///< found where it was, under another name
  explained,   ///< missed for a reason that lies in the agent's own rules
  missed,      ///< it was there to be seen, and nothing was said
  masked,      ///< nobody who had to notice it was handed it
  falseAlarm,  ///< something was reported where nothing wrong had been handed out
  idle,        ///< the fault found no opportunity
  broken,      ///< the test ended with an error of its own
};
inline constexpr size_t verdicts = 8;

/// "found and named", "found", "missed, explained", "missed", "masked", "false alarm", "no opportunity", "broken".
const char* verdictName(Verdict verdict);

struct Judgement {
  Verdict verdict = Verdict::idle;
  std::string reason;  ///< of masked, explained, falseAlarm and broken: one phrase
};

/// What of a test bears on the verdict.
struct JudgedTest {
  uint64_t maxSpan = 1;          ///< LBAs that its longest command covers
  bool looksForSplices = false;  ///< the agent's "Write Splice Detection"
  bool slidesReads = false;      ///< the agent's "Slide Reads"
};

/// Holds a run's result against what the ledger says of a fault of this class.
Judgement judge(FaultClass what, const RunResult& result, const JudgedTest& test);

/// The agent's status that names a fault of this class: -1046, -1062 or -1063.
int32_t statusNaming(FaultClass what);

}  // namespace corvane::host
