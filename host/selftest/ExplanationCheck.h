#pragma once

#include <string>

#include "host/explain/Explanation.h"
#include "host/fault/FaultLedger.h"
#include "host/run/RunResult.h"

namespace corvane::host {

/// How an explanation fares against the ledger of what was really done.
struct ExplanationVerdict {
  bool explained = false;  ///< there was evidence to explain
  FindingKind kind = FindingKind::unknown;
  bool suspected = false;       ///< the class that was injected is among the suspects
  bool suspectedFirst = false;  ///< it is the first of them
  std::string wrong;            ///< a fact that contradicts the ledger; empty: none does
};

/// Whether a block that a fault of this class spoilt can be of this kind. An unknown kind fits every class.
bool canShowAs(FaultClass what, FindingKind kind);

/// Holds the explanation of a run's finding against the one injection of the run, which was found.
ExplanationVerdict checkExplanation(FaultClass what, const RunResult& result);

}  // namespace corvane::host
