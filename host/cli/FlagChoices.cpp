#include "host/cli/FlagChoices.h"

#include <CLI/CLI.hpp>
#include <functional>
#include <map>
#include <sstream>

#include "host/cli/ValueParsers.h"
#include "host/drive/DriveFactory.h"
#include "host/fault/FaultClass.h"
#include "host/run/LbaAgent.h"

namespace corvane::host {
namespace {

using Kind = FlagChoices::Kind;

std::vector<std::string> commandKinds() {
  const CommandMix every{.write = 1, .writeAtomic = 1, .writeSame = 1, .trim = 1, .read = 1, .verify = 1};
  std::istringstream text(commandMixText(every));
  std::vector<std::string> kinds;
  for (std::string kind; std::getline(text, kind, ',');) {
    kinds.push_back(kind);
  }
  return kinds;
}

std::vector<std::string> stepNames() {
  std::vector<std::string> names;
  for (const ConditionedStep step : allConditionedSteps()) {
    names.emplace_back(stepName(step));
  }
  return names;
}

std::vector<std::string> powerToggles() {
  std::vector<std::string> words;
  for (const PowerToggle toggle : {PowerToggle::off, PowerToggle::withoutSync, PowerToggle::withSync}) {
    words.emplace_back(powerToggleText(toggle));
  }
  return words;
}

/// "sim:", "file:PATH": the beginnings of the lines that explain a kind of drive.
std::vector<std::string> driveKinds() {
  std::istringstream text(driveAddressHelp());
  std::vector<std::string> kinds;
  for (std::string line; std::getline(text, line);) {
    const size_t colon = line.find_first_not_of("abcdefghijklmnopqrstuvwxyz0123456789");
    if (colon != 0 && colon != std::string::npos && line[colon] == ':') {
      const bool path = line.compare(colon + 1, 4, "PATH") == 0;
      kinds.push_back(line.substr(0, colon + 1) + (path ? "PATH" : ""));
    }
  }
  return kinds;
}

const std::map<std::string, std::function<FlagChoices()>>& choicesByFlag() {
  static const std::map<std::string, std::function<FlagChoices()>> choices{
      {"--commands-of",
       [] {
         return FlagChoices{Kind::lists, commandKinds()};
       }},
      {"--step",
       [] {
         return FlagChoices{Kind::entries, stepNames()};
       }},
      {"--lba-agent",
       [] {
         return FlagChoices{Kind::words, lbaAgentNames()};
       }},
      {"--power-toggle",
       [] {
         return FlagChoices{Kind::words, powerToggles()};
       }},
      {"--fault",
       [] {
         return FlagChoices{Kind::faults, faultClassNames()};
       }},
      {"--class",
       [] {
         return FlagChoices{Kind::words, faultClassNames()};
       }},
  };
  return choices;
}

}  // namespace

FlagChoices choicesOf(const CLI::Option& option) {
  const std::string flag = option.get_positional() ? "" : option.get_name(false, true);
  if (const auto known = choicesByFlag().find(flag); known != choicesByFlag().end()) {
    return known->second();
  }
  // A word without a flag is named by what it is.
  const std::string value = option.get_positional() ? option.get_name(true) : option.get_type_name();
  if (value == "ADDRESS") {
    return {Kind::addresses, driveKinds()};
  }
  if (value.find("FILE") != std::string::npos) {
    return {Kind::files, {}};
  }
  if (value.find("DIR") != std::string::npos) {
    return {Kind::folders, {}};
  }
  return {};
}

std::vector<std::string> flagsWithChoices() {
  std::vector<std::string> flags;
  for (const auto& [flag, choices] : choicesByFlag()) {
    flags.push_back(flag);
  }
  return flags;
}

}  // namespace corvane::host
