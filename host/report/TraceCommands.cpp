#include "host/report/TraceCommands.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <map>

namespace corvane::host::report {
namespace {

constexpr uint64_t firstReach = 4;
constexpr uint64_t lastReach = 4096;
constexpr size_t wantedCommands = 20;
constexpr size_t mostCommands = 300;

std::string hexText(const char* format, uint64_t value) {
  std::array<char, 48> text{};
  std::snprintf(text.data(), text.size(), format, static_cast<unsigned long long>(value));
  return text.data();
}

std::string troubleOf(const TraceEntry& end) {
  if (end.event == TraceEvent::aborted) {
    return "aborted";
  }
  std::string text;
  if (end.sense.value_or(0) != 0) {
    text = hexText("KCQ %06llX", *end.sense);
  }
  if (end.unitError.value_or(0) != 0) {
    text += (text.empty() ? "" : ", ") + hexText("UEC 0x%04llX", *end.unitError);
  }
  return text;
}

ReportedCommand commandOf(const TraceEntry& issue) {
  ReportedCommand command;
  command.id = issue.commandId;
  command.kind = issue.kind;
  command.tag = issue.tag;
  command.lba = issue.lba;
  command.blocks = issue.blocks;
  command.issued = issue.index;
  command.preRead = issue.preRead;
  return command;
}

/// Puts issues and completions together; a tag carries one command at a time.
std::vector<ReportedCommand> commandsOf(const std::vector<TraceEntry>& entries) {
  std::vector<ReportedCommand> commands;
  std::map<uint64_t, size_t> onTag;
  for (const TraceEntry& entry : entries) {
    if (!entry.tag) {
      continue;
    }
    if (entry.event == TraceEvent::issued) {
      onTag[*entry.tag] = commands.size();
      commands.push_back(commandOf(entry));
    } else if (entry.event == TraceEvent::finished || entry.event == TraceEvent::aborted) {
      if (const auto open = onTag.find(*entry.tag); open != onTag.end()) {
        commands[open->second].finished = entry.index;
        commands[open->second].trouble = troubleOf(entry);
        onTag.erase(open);
      }
    }
  }
  return commands;
}

uint64_t distance(const ReportedCommand& command, uint64_t lba) {
  if (lba < command.lba) {
    return command.lba - lba;
  }
  const uint64_t past = lba - command.lba;
  return past < command.blocks ? 0 : past - command.blocks + 1;
}

std::vector<ReportedCommand> near(const std::vector<ReportedCommand>& all, uint64_t lba) {
  std::vector<ReportedCommand> chosen;
  for (uint64_t reach = firstReach; reach <= lastReach && chosen.size() < wantedCommands; reach *= 2) {
    chosen.clear();
    std::copy_if(all.begin(), all.end(), std::back_inserter(chosen),
                 [=](const ReportedCommand& one) { return one.blocks != 0 && distance(one, lba) <= reach; });
  }
  size_t surplus = chosen.size() - std::min(chosen.size(), mostCommands);
  std::erase_if(chosen, [&surplus, lba](const ReportedCommand& one) {
    const bool goes = surplus != 0 && !one.touches(lba);
    surplus -= goes ? 1 : 0;
    return goes;
  });
  if (chosen.size() > mostCommands) {
    chosen.erase(chosen.begin(), chosen.end() - static_cast<std::ptrdiff_t>(mostCommands));
  }
  return chosen;
}

std::string momentText(const TraceEntry& entry, uint64_t lba) {
  switch (entry.event) {
    case TraceEvent::powerOff:
      return "power off";
    case TraceEvent::powerOn:
      return "power on";
    case TraceEvent::rangeInvalidated:
      return entry.lba <= lba && lba <= entry.endLba ? "range invalidated" : "";
    case TraceEvent::zoneReset:
      return entry.lba <= lba && lba <= entry.endLba ? "zone reset" : "";
    case TraceEvent::writeSplice:
      return entry.lba == lba ? "write splice" : "";
    case TraceEvent::miscompare:
      return entry.lba == lba ? "miscompare" : "";
    case TraceEvent::issued:
    case TraceEvent::finished:
    case TraceEvent::aborted:
    case TraceEvent::outOfOrder:
      break;
  }
  return "";
}

}  // namespace

TraceNeighbourhood commandsAround(const TraceReport& trace, uint64_t lba) {
  const std::vector<TraceEntry>& entries = trace.all.empty() ? trace.aboutBlock : trace.all;
  TraceNeighbourhood around;
  around.commands = near(commandsOf(entries), lba);
  for (const TraceEntry& entry : entries) {
    if (entry.event == TraceEvent::miscompare && entry.lba == lba) {
      around.failingId = entry.commandId;
    }
    if (const std::string text = momentText(entry, lba); !text.empty() && around.moments.size() < mostCommands) {
      around.moments.push_back({entry.index, text});
    }
  }
  return around;
}

}  // namespace corvane::host::report
