#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace corvane::host {

inline constexpr uint32_t mostCpus = 8192;  ///< processors have numbers below this

/// "0,2-5": processors by number, single ones and ranges with both ends, in this order.
///
/// @return nothing for a text that is no such list, or names a processor twice
std::optional<std::vector<uint32_t>> parseCpuList(std::string_view text);

/// The text of a list, with ranges where numbers follow each other.
std::string cpuListText(const std::vector<uint32_t>& cpus);

/// The processors on which the calling thread may run, lowest first.
std::vector<uint32_t> allowedCpus();

/// Lets the calling thread run on one processor only.
///
/// @return false when the system refuses
bool pinThisThread(uint32_t cpu);

}  // namespace corvane::host
