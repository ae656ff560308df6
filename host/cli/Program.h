#pragma once

#include <functional>

namespace CLI {
class App;
}

namespace corvane::host {

/// The program: follows a command line, prints to the standard streams, and returns the exit status (ExitStatus.h).
///
/// Whatever is wrong is said in one line on the standard error stream. Throws nothing.
int runProgram(int argc, const char* const* argv) noexcept;

/// Shows `reader` every command and flag, as `--help` does, for manuals that are written from them.
///
/// What is shown lives until the reader returns.
void describeProgram(const std::function<void(const CLI::App&)>& reader);

}  // namespace corvane::host
