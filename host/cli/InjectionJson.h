#pragma once

#include <nlohmann/json.hpp>
#include <vector>

#include "host/fault/FaultLedger.h"

namespace corvane::host {

/// What was done on purpose, for programs: for each injection the command that it struck, and for each altered block
/// its first bytes as they had to be and as they are, in hexadecimal.
nlohmann::ordered_json injectionsJson(const std::vector<Injection>& injections);

}  // namespace corvane::host
