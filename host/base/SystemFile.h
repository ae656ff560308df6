#pragma once

#include <string>

namespace corvane::host {

/// The content of a file of the system, such as those below /proc and /sys; empty when there is none.
///
/// Such a file may go away between its opening and its reading, as that of a device does which is taken away. That is
/// no error of whoever looks at it. Throws std::bad_alloc only: half a text would be taken for the whole.
std::string contentOf(const std::string& path);

}  // namespace corvane::host
