// What a run wrote for programs, read back: the stream of its events, and the document that a replay begins with.

#include <nlohmann/json.hpp>

#include <algorithm>
#include <optional>
#include <string>
#include <variant>
#include <vector>

#include "fuzz/Target.h"
#include "host/cli/EventJson.h"
#include "host/cli/EventStreamReader.h"
#include "host/cli/GivenTest.h"
#include "host/cli/RecordedRun.h"
#include "host/cli/UsageError.h"

using corvane::fuzz::require;
using corvane::fuzz::requireMessage;
using namespace corvane::host;

namespace {

std::vector<std::string> drivesOf(const EventStreamContent& content) {
  std::vector<std::string> names;
  if (const StartEvent* start = content.start()) {
    for (const DriveIntroduction& drive : start->drives) {
      names.push_back(drive.name);
    }
  }
  return names;
}

/// Whether the drive that an event names is one of so many.
bool namesADrive(const RunEvent& event, size_t drives) {
  return std::visit(
      [drives](const auto& what) {
        if constexpr (requires { what.driveIndex; }) {
          return what.driveIndex < drives;
        } else {
          return true;
        }
      },
      event.what);
}

std::string written(const EventStreamContent& content) {
  const std::vector<std::string> drives = drivesOf(content);
  std::string stream;
  for (const RunEvent& event : content.events) {
    stream += eventLine(event, drives) + "\n";
  }
  return stream;
}

using Json = nlohmann::ordered_json;

/// Whether all that is written was given.
bool wasGiven(const Json& written, const Json& given) {
  if (written.is_object()) {
    return given.is_object() && std::all_of(written.items().begin(), written.items().end(), [&](const auto& member) {
             return given.contains(member.key()) && wasGiven(member.value(), given[member.key()]);
           });
  }
  if (written.is_array()) {
    return given.is_array() && std::equal(written.begin(), written.end(), given.begin(), given.end(), wasGiven);
  }
  return written == given;
}

/// An event that is written again says what the first one said.
void writeLine(std::string_view line) {
  const EventLine read = parseEventLine(line);
  if (read.kind != EventLineKind::event) {
    return;
  }
  Json again = Json::parse(eventLine(read.event, {}));
  again.erase("drive");  // the name of a drive is taken from the stream's start
  require(wasGiven(again, Json::parse(line)), "an event that is written again says the same");
}

/// A run may be killed at any byte.
void cutOff(std::string_view stream, const EventStreamContent& whole) {
  const size_t length = stream.size() * 2 / 3;
  const EventStreamContent part = readEvents(stream.substr(0, length));
  require(!part.error, "a stream that is cut off is still one");
  require(part.events.size() <= whole.events.size(), "a stream that is cut off has no further events");
}

void readStream(std::string_view stream) {
  const EventStreamContent content = readEvents(stream);
  const auto lines = static_cast<uint64_t>(std::count(stream.begin(), stream.end(), '\n')) + 1;
  require(!content.error || (content.error->line >= 1 && content.error->line <= lines), "an error is in a line");
  require(!content.error || !content.error->text.empty(), "an error says something");
  require(content.events.size() + content.unknownEvents <= lines, "a line is one event");
  require(content.events.empty() || content.start() != nullptr, "a stream begins with its start");
  const size_t drives = drivesOf(content).size();
  for (const RunEvent& event : content.events) {
    require(namesADrive(event, drives), "the drive of an event is one of the stream's");
    require(&event == &content.events.front() || !std::holds_alternative<StartEvent>(event.what),
            "a stream starts once");
  }
  const std::string again = written(content);
  const EventStreamContent reread = readEvents(again);
  require(!reread.error && !reread.lastLineTorn && reread.events.size() == content.events.size(),
          "a stream that is written again has all its events");
  require(written(reread) == again, "a stream that is written again is written alike");
  // The rest of a line that nobody ended need not be the beginning of one.
  if (!content.error && !content.lastLineTorn) {
    cutOff(stream, content);
  }
}

void readDocument(std::string_view text) {
  try {
    const RecordedRun run = recordedRunFrom(text, "x.json");
    run.test.settings();
  } catch (const UsageError& error) {
    const std::string_view message = error.what();
    // A document may lack its drive, which is then asked of whoever replays it.
    requireMessage(message, message.starts_with("--drive is missing") ? "--drive" : "x.json", text);
  }
}

}  // namespace

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string_view text(reinterpret_cast<const char*>(data), size);
  readStream(text);
  for (std::string_view rest = text; !rest.empty();) {
    const size_t end = std::min(rest.find('\n'), rest.size());
    writeLine(rest.substr(0, end));
    rest.remove_prefix(std::min(end + 1, rest.size()));
  }
  readDocument(text);
  return 0;
}
