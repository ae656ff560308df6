#pragma once

#include <string>

namespace CLI {
class App;
}

namespace corvane::host {

/// A script that makes bash complete the program's commands, flags, and the values that the program knows.
///
/// It needs nothing but bash, runs no program, and leaves functions named `_corvane…` in the shell that reads it.
std::string bashCompletion(const CLI::App& app);

}  // namespace corvane::host
