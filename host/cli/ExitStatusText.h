#pragma once

#include <array>

#include "host/cli/ExitStatus.h"

namespace corvane::host {

/// An exit status in words.
struct ExitStatusText {
  int status;
  const char* name;     ///< as `--help` says it: "data failure"
  const char* meaning;  ///< a sentence or two
};

/// Every exit status, by its number.
inline constexpr std::array<ExitStatusText, 5> exitStatusTexts{{
    {exit_status::clean, "clean", "The test ended, and every block that was read held what it had to hold."},
    {exit_status::dataFailure, "data failure",
     "The drive failed: a block held something that no rule allows, could not be read after a failed write, or showed "
     "half of an atomic write. Of selftest: a fault that must be found was missed, or a clean run alarmed."},
    {exit_status::usage, "wrong command line or configuration",
     "Nothing was tested. One line on the standard error stream names what is wrong and what would be accepted."},
    {exit_status::drive, "drive or transport failed",
     "The drive could not be opened, or stopped answering; nothing is said about its data."},
    {exit_status::internal, "internal error", "Corvane itself, or the agent, failed. Nothing is said about the drive."},
}};

}  // namespace corvane::host
