#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "host/cli/RunEvents.h"

namespace corvane::host {

/// The event as one line of JSON, without the line break. Text that is not UTF-8 has its wrong bytes replaced.
///
/// @param drives display names by index; a drive beyond them has no name
std::string eventLine(const RunEvent& event, const std::vector<std::string>& drives);

/// What became of reading a line.
enum class EventLineKind : uint8_t {
  event,
  unknown,   ///< well formed, but an event that this program does not know
  noObject,  ///< no JSON object, or the end of one is missing
  wrong,     ///< an event that lacks a value, or has one of the wrong kind
};

struct EventLine {
  EventLineKind kind = EventLineKind::noObject;
  RunEvent event;     ///< when it is one
  std::string fault;  ///< in words, when it is none; empty for unknown ones
};

/// Reads a line back, whatever its bytes are.
EventLine parseEventLine(std::string_view line);

}  // namespace corvane::host
