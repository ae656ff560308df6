#pragma once

#include <string>
#include <vector>

#include "host/explain/Explanation.h"
#include "host/run/FindingEvidence.h"
#include "host/run/RunResult.h"

namespace corvane::host {

/// Another drive of the same test, whose data may have landed on the wrong drive.
struct OtherDrive {
  std::string name;
  const CommandJournal* journal = nullptr;  ///< never null
};

/// Explains a finding from its evidence, which must have a journal. Says no more than the evidence shows: what cannot
/// be told apart is left as several suspects.
Explanation explain(const FindingEvidence& evidence, const std::vector<OtherDrive>& others);

/// As above, of one drive of a finished test; nothing when that drive has no evidence.
std::optional<Explanation> explainDrive(const RunResult& result, size_t drive);

}  // namespace corvane::host
