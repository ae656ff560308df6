#include "host/cli/EventStreamReader.h"

#include <cerrno>
#include <fstream>
#include <iterator>
#include <sstream>
#include <system_error>
#include <type_traits>

#include "host/cli/EventJson.h"

namespace corvane::host {
namespace {

/// The drive that an event names, if it names one.
std::optional<uint32_t> driveOf(const RunEvent& event) {
  return std::visit(
      [](const auto& what) -> std::optional<uint32_t> {
        if constexpr (requires { what.driveIndex; }) {
          return what.driveIndex;
        } else {
          return std::nullopt;
        }
      },
      event.what);
}

/// What is wrong with an event at its place in a stream; empty when it fits.
std::string misplaced(const RunEvent& event, const EventStreamContent& before) {
  const bool starts = std::holds_alternative<StartEvent>(event.what);
  const StartEvent* start = before.start();
  if (start == nullptr) {
    return starts ? "" : "the stream does not begin with a start event";
  }
  if (starts) {
    return "there is a second start event";
  }
  const std::optional<uint32_t> drive = driveOf(event);
  if (drive && *drive >= start->drives.size()) {
    return "the event is about drive " + std::to_string(*drive) + ", but there are " +
           std::to_string(start->drives.size());
  }
  return {};
}

}  // namespace

const StartEvent* EventStreamContent::start() const {
  return events.empty() ? nullptr : std::get_if<StartEvent>(&events.front().what);
}

const EndEvent* EventStreamContent::end() const {
  return events.empty() ? nullptr : std::get_if<EndEvent>(&events.back().what);
}

EventStreamContent readEvents(std::string_view stream) {
  EventStreamContent content;
  for (uint64_t number = 1; !stream.empty(); ++number) {
    const size_t end = stream.find('\n');
    const bool whole = end != std::string_view::npos;
    EventLine line = parseEventLine(stream.substr(0, end));
    stream.remove_prefix(whole ? end + 1 : stream.size());
    if (!whole && line.kind == EventLineKind::noObject) {
      content.lastLineTorn = true;
      return content;
    }
    if (line.kind == EventLineKind::unknown) {
      ++content.unknownEvents;
      continue;
    }
    if (line.kind == EventLineKind::event) {
      line.fault = misplaced(line.event, content);
    }
    if (!line.fault.empty()) {
      content.error = EventStreamError{.line = number, .text = std::move(line.fault)};
      return content;
    }
    content.events.push_back(std::move(line.event));
  }
  return content;
}

EventStreamContent readEventFile(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  std::ostringstream bytes;
  if (file && file.peek() != std::ifstream::traits_type::eof()) {
    bytes << file.rdbuf();
  }
  if (!file.is_open() || file.bad() || bytes.fail()) {
    EventStreamContent content;
    content.error = EventStreamError{.line = 0, .text = "'" + path + "' cannot be read"};
    return content;
  }
  return readEvents(bytes.str());
}

}  // namespace corvane::host
