#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace corvane::host {

/// The whole of a file that the user named.
///
/// @param what    how a message begins: "test file"
/// @param longest bytes; a longer file is refused, so that nobody waits for a device to end
/// @param remedy  what a message says at its end
///
/// Throws UsageError for a file that cannot be read or is too long.
std::string readInputFile(std::string_view what, const std::string& path, size_t longest, std::string_view remedy);

}  // namespace corvane::host
