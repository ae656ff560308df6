#pragma once

namespace corvane::host {

/// The program: follows a command line, prints to the standard streams, and returns the exit status (ExitStatus.h).
///
/// Whatever is wrong is said in one line on the standard error stream. Throws nothing.
int runProgram(int argc, const char* const* argv) noexcept;

}  // namespace corvane::host
