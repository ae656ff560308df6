#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "host/cli/RunEvents.h"

namespace corvane::host {

/// Why a stream of events could not be read to its end.
struct EventStreamError {
  uint64_t line = 0;  ///< the first one is 1; 0 when the file itself could not be read
  std::string text;   ///< in words
};

/// What stands in a stream of events.
struct EventStreamContent {
  std::vector<RunEvent> events;           ///< in their order; those before the error when there is one
  bool lastLineTorn = false;              ///< the writer was cut off in the middle of the last line, which is left out
  uint64_t unknownEvents = 0;             ///< lines of kinds that this program does not know; they are left out
  std::optional<EventStreamError> error;  ///< when it is no stream of events, or damaged

  /// The event that it began with; null when there is none.
  const StartEvent* start() const;
  /// The event that it ended with; null when the run was cut off.
  const EndEvent* end() const;
};

/// Reads back what a run wrote, whether it ended or was killed. Throws nothing, whatever the bytes are.
///
/// A stream begins with its only start event, and each drive that an event names is one of that event's.
EventStreamContent readEvents(std::string_view stream);

/// As `readEvents`, for a file.
EventStreamContent readEventFile(const std::string& path);

}  // namespace corvane::host
