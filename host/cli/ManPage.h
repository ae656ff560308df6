#pragma once

#include <string>

namespace CLI {
class App;
}

namespace corvane::host {

/// The program's manual page, for `man`: every command with each of its flags as `--help` explains them, and what
/// `--help` has no room for.
std::string manPage(const CLI::App& app);

}  // namespace corvane::host
