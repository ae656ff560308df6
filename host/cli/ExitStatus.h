#pragma once

#include "host/run/RunResult.h"

namespace corvane::host {

/// What the program ends with. Ended by a second SIGINT or SIGTERM it has no status of its own: the signal kills it,
/// which a shell shows as 128 plus the signal's number.
namespace exit_status {
inline constexpr int clean = 0;
inline constexpr int dataFailure = 1;
inline constexpr int usage = 2;
inline constexpr int drive = 3;
inline constexpr int internal = 4;
}  // namespace exit_status

constexpr int exitStatusOf(RunStatus status) {
  switch (status) {
    case RunStatus::clean:
      return exit_status::clean;
    case RunStatus::dataFailure:
      return exit_status::dataFailure;
    case RunStatus::configuration:
      return exit_status::usage;
    case RunStatus::drive:
      return exit_status::drive;
    case RunStatus::internal:
      break;
  }
  return exit_status::internal;
}

}  // namespace corvane::host
