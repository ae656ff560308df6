#include "host/cli/EventJson.h"

#include <nlohmann/json.hpp>
#include <utility>

#include "host/cli/FiguresJson.h"
#include "host/cli/JsonFields.h"

namespace corvane::host {
namespace {

using Json = nlohmann::ordered_json;

/// Writes what an event has beside its time.
class EventWriter {
 public:
  EventWriter(Json& object, const std::vector<std::string>& drives) : object_(object), drives_(drives) {}

  void operator()(const StartEvent& start) {
    name("start");
    object_["version"] = start.version;
    object_["seed"] = start.seed;
    object_["seedDrawn"] = start.seedDrawn;
    object_["repeat"] = start.repeat;
    object_["warnings"] = start.warnings;
    Json& list = object_["drives"] = Json::array();
    for (const DriveIntroduction& drive : start.drives) {
      addIntroduction(list.emplace_back(Json::object()), drive);
    }
  }
  void operator()(const ProgressEvent& progress) {
    name("progress", progress.driveIndex);
    object_["outstanding"] = progress.totals.outstanding;
    addFigures(object_, progress.totals);
  }
  void operator()(const AgentEvent& agent) {
    name("agent", agent.driveIndex);
    object_["level"] = agent.level;
    object_["text"] = agent.text;
  }
  void operator()(const ResetEvent& reset) { name("reset", reset.driveIndex); }
  void operator()(const PowerCycleEvent& cycle) { name("powerCycle", cycle.driveIndex); }
  void operator()(const ConnectionLostEvent& lost) {
    name("connectionLost", lost.driveIndex);
    object_["cause"] = lost.cause;
  }
  void operator()(const FindingEvent& found) {
    name("finding", found.driveIndex);
    object_["agentStatus"] = found.finding.agentStatus;
    object_["lba"] = found.finding.lba ? Json(*found.finding.lba) : Json();
    object_["text"] = found.finding.text;
    object_["files"] = found.finding.files;
  }
  void operator()(const DriveEndEvent& end) {
    name("driveEnd", end.driveIndex);
    object_["status"] = runStatusName(end.status);
    object_["agentStatus"] = end.agentStatus;
    object_["error"] = end.error;
    object_["elapsedMs"] = end.elapsedMs;
    addFigures(object_, end.totals);
  }
  void operator()(const StopEvent& stop) {
    name("stop");
    object_["signal"] = stop.signal;
  }
  void operator()(const LostEvent& lost) {
    name("lost");
    object_["events"] = lost.events;
  }
  void operator()(const EndEvent& end) {
    name("end");
    object_["status"] = runStatusName(end.status);
    object_["exitStatus"] = end.exitStatus;
    object_["stopped"] = end.stopped;
    object_["error"] = end.error;
  }

 private:
  void name(const char* event) { object_["event"] = event; }
  void name(const char* event, uint32_t driveIndex) {
    name(event);
    object_["driveIndex"] = driveIndex;
    object_["drive"] = driveIndex < drives_.size() ? drives_[driveIndex] : "";
  }

  Json& object_;
  const std::vector<std::string>& drives_;
};

RunStatus statusFrom(JsonFields& fields) {
  const std::optional<RunStatus> status = runStatusNamed(fields.text("status"));
  if (!status) {
    fields.fail("status");
  }
  return status.value_or(RunStatus::internal);
}

StartEvent startFrom(JsonFields& fields) {
  StartEvent start;
  start.version = fields.text("version");
  start.seed = fields.number("seed");
  start.seedDrawn = fields.flag("seedDrawn");
  start.repeat = fields.texts("repeat");
  start.warnings = fields.texts("warnings");
  for (const Json& entry : fields.part("drives")) {
    JsonFields drive(entry);
    start.drives.push_back(introductionFrom(drive));
    fields.takeFault("drives", drive);
  }
  return start;
}

ProgressEvent progressFrom(JsonFields& fields) {
  ProgressEvent progress;
  progress.driveIndex = fields.number32("driveIndex");
  progress.totals = figuresFrom(fields);
  progress.totals.outstanding = fields.number32("outstanding");
  return progress;
}

FindingEvent findingFrom(JsonFields& fields) {
  FindingEvent found;
  found.driveIndex = fields.number32("driveIndex");
  found.finding.drive = fields.text("drive");
  found.finding.agentStatus = fields.signedNumber32("agentStatus");
  found.finding.lba = fields.numberOrNull("lba");
  found.finding.text = fields.text("text");
  found.finding.files = fields.texts("files");
  return found;
}

DriveEndEvent driveEndFrom(JsonFields& fields) {
  DriveEndEvent end;
  end.driveIndex = fields.number32("driveIndex");
  end.status = statusFrom(fields);
  end.agentStatus = fields.signedNumber32("agentStatus");
  end.error = fields.text("error");
  end.elapsedMs = fields.number("elapsedMs");
  end.totals = figuresFrom(fields);
  return end;
}

EndEvent endFrom(JsonFields& fields) {
  EndEvent end;
  end.status = statusFrom(fields);
  end.exitStatus = fields.signedNumber32("exitStatus");
  end.stopped = fields.flag("stopped");
  end.error = fields.text("error");
  return end;
}

/// @return whether it is an event that is known
bool readEvent(const std::string& name, JsonFields& fields, RunEvent& event) {
  if (name == "start") {
    event.what = startFrom(fields);
  } else if (name == "progress") {
    event.what = progressFrom(fields);
  } else if (name == "agent") {
    event.what = AgentEvent{.driveIndex = fields.number32("driveIndex"),
                            .level = fields.signedNumber32("level"),
                            .text = fields.text("text")};
  } else if (name == "reset") {
    event.what = ResetEvent{.driveIndex = fields.number32("driveIndex")};
  } else if (name == "powerCycle") {
    event.what = PowerCycleEvent{.driveIndex = fields.number32("driveIndex")};
  } else if (name == "connectionLost") {
    event.what = ConnectionLostEvent{.driveIndex = fields.number32("driveIndex"), .cause = fields.text("cause")};
  } else if (name == "finding") {
    event.what = findingFrom(fields);
  } else if (name == "driveEnd") {
    event.what = driveEndFrom(fields);
  } else if (name == "stop") {
    event.what = StopEvent{.signal = fields.text("signal")};
  } else if (name == "lost") {
    event.what = LostEvent{.events = fields.number("events")};
  } else if (name == "end") {
    event.what = endFrom(fields);
  } else {
    return false;
  }
  return true;
}

}  // namespace

std::string eventLine(const RunEvent& event, const std::vector<std::string>& drives) {
  Json object = Json::object();
  object["t"] = event.ms;
  std::visit(EventWriter(object, drives), event.what);
  return object.dump(-1, ' ', false, Json::error_handler_t::replace);
}

EventLine parseEventLine(std::string_view line) {
  EventLine result;
  const Json object = Json::parse(line.begin(), line.end(), nullptr, false);
  if (!object.is_object()) {
    result.fault = "this is no JSON object";
    return result;
  }
  JsonFields fields(object);
  result.event.ms = fields.number("t");
  const std::string name = fields.text("event");
  const bool known = readEvent(name, fields, result.event);
  if (fields.fault().empty()) {
    result.kind = known ? EventLineKind::event : EventLineKind::unknown;
    return result;
  }
  result.kind = EventLineKind::wrong;
  result.fault = (known ? "the event '" + name + "'" : "this") + " has no fitting value of '" + fields.fault() + "'";
  return result;
}

}  // namespace corvane::host
