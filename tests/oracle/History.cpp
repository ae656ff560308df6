#include "tests/oracle/History.h"

#include <algorithm>

namespace oracletest {

namespace {

const char* nameOf(Kind kind) {
  constexpr std::array names = {"write", "atomic", "trim", "found", "read", "read-back", "read-ahead"};
  return names[static_cast<std::size_t>(kind)];
}

std::string nameOf(uint8_t command) { return std::string(1, static_cast<char>('A' + command)); }

std::string nameOfValue(Value value) {
  return value == baseValue ? "old" : value == zeroes ? "zeros" : value == foreign ? "foreign" : nameOf(value - 1);
}

std::string textOf(const Command& command) {
  std::string text = std::string(nameOf(command.kind)) + " " + std::to_string(command.first);
  if (command.blocks > 1) {
    text += "-" + std::to_string(command.end() - 1);
  }
  if (command.kind == Kind::atomicWrite && command.bound < command.blocks) {
    text += " in segments of " + std::to_string(command.bound);
  }
  return text;
}

}  // namespace

std::size_t History::position(uint8_t command, bool end) const {
  const auto found = std::find_if(events.begin(), events.end(), [command, end](const Event& event) {
    return event.command == command && event.end == end;
  });
  return static_cast<std::size_t>(found - events.begin());
}

std::string describe(const History& history) {
  constexpr std::array bases = {"written", "trimmed", "unknown"};
  std::string text = std::to_string(history.blocks) + " blocks, " + bases[static_cast<std::size_t>(history.base)] + ":";
  for (const Event& event : history.events) {
    const Command& command = history.commands[event.command];
    text += " " + nameOf(event.command);
    if (!event.end) {
      text += "=" + textOf(command) + ";";
    } else if (isRead(command.kind)) {
      text += " done;";
    } else {
      text += command.ending == Ending::good ? " good;" : " aborted;";
    }
  }
  return text;
}

std::string describe(const History& history, uint8_t read, Image image) {
  std::string text = describe(history);
  for (uint8_t i = 0; i < history.count(); ++i) {
    const Command& command = history.commands[i];
    if (isRead(command.kind)) {
      text += " " + nameOf(i) + " showed";
      for (uint32_t block = command.first; block < command.end(); ++block) {
        text += " " + nameOfValue(valueAt(i == read ? image : history.shown[i], block));
      }
      text += ";";
    }
  }
  return text;
}

}  // namespace oracletest
