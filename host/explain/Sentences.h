#pragma once

#include <string>
#include <vector>

#include "host/explain/Explanation.h"
#include "host/run/FindingEvidence.h"

namespace corvane::host {

/// "write with command id 8", "trim with command id 12".
std::string commandText(const JournalEntry& command);

/// What a command left: "the data of the write with command id 8", "zeros, by the trim with command id 12".
std::string contentText(const JournalEntry& write);

/// An explanation whose other parts are filled in, in sentences: where, what the block says of itself, what it is,
/// what had been legal, what stands around it, what a later read returned, what fits.
std::vector<std::string> sentencesOf(const Explanation& explanation, const FindingEvidence& evidence);

}  // namespace corvane::host
