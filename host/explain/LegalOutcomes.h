#pragma once

#include <string_view>
#include <vector>

#include "host/explain/Explanation.h"

namespace corvane::host {

/// What an agent would have accepted on an LBA, by its own table of the LBA's history: the newest content that is
/// certain, and above it every atomic write whose end is open. Lines that are not of the table are passed over.
///
/// @param history one table or several; the one of `lba` is taken, else the first
std::vector<LegalOutcome> legalOutcomesIn(std::string_view history, uint64_t lba);

}  // namespace corvane::host
