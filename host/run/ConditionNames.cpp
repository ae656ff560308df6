#include "host/run/ConditionNames.h"

#include <algorithm>
#include <stdexcept>

#include "host/base/NearestName.h"
#include "host/run/ConfigurationError.h"

namespace corvane::host {
namespace {

bool isLetter(char c) { return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z'); }

bool isName(std::string_view text) {
  return !text.empty() && isLetter(text.front()) && std::all_of(text.begin(), text.end(), [](char c) {
    return isLetter(c) || (c >= '0' && c <= '9') || c == '_' || c == '-';
  });
}

std::string joined(const std::vector<std::string>& names) {
  std::string text;
  for (const std::string& name : names) {
    text.append(text.empty() ? "" : ", ").append(name);
  }
  return text;
}

std::vector<std::string> stepNames(uint32_t count) {
  std::vector<std::string> names;
  for (uint32_t step = 0; step < count; ++step) {
    names.emplace_back(stepName(static_cast<ConditionedStep>(step)));
  }
  return names;
}

}  // namespace

const std::array<ConditionedStep, conditionedSteps>& allConditionedSteps() {
  static constexpr std::array<ConditionedStep, conditionedSteps> steps{
      ConditionedStep::read,      ConditionedStep::verify, ConditionedStep::write,     ConditionedStep::writeAtomic,
      ConditionedStep::writeSame, ConditionedStep::trim,   ConditionedStep::e2e,       ConditionedStep::powerToggle,
      ConditionedStep::syncCache, ConditionedStep::reset,  ConditionedStep::zoneReset, ConditionedStep::invalidate};
  return steps;
}

const char* stepName(ConditionedStep step) {
  static constexpr std::array<const char*, conditionedSteps> names{"read",      "verify", "write",      "atomic",
                                                                   "writesame", "trim",   "e2e",        "power",
                                                                   "sync",      "reset",  "zone-reset", "invalidate"};
  return names.at(static_cast<size_t>(step));
}

ConditionedStep stepNamed(std::string_view name) {
  const auto& steps = allConditionedSteps();
  const auto found =
      std::find_if(steps.begin(), steps.end(), [name](ConditionedStep s) { return name == stepName(s); });
  if (found != steps.end()) {
    return *found;
  }
  const std::vector<std::string> known = stepNames(conditionedSteps);
  const std::string meant = didYouMean(name, known);
  throw ConfigurationError("'" + std::string(name) + "' is no step of a test" +
                           (meant.empty() ? "; steps are " + joined(known) : meant));
}

ConditionedStep stepOf(CommandKind kind) {
  switch (kind) {
    case CommandKind::write:
      return ConditionedStep::write;
    case CommandKind::writeAtomic:
      return ConditionedStep::writeAtomic;
    case CommandKind::writeSame:
      return ConditionedStep::writeSame;
    case CommandKind::trim:
      return ConditionedStep::trim;
    case CommandKind::read:
      return ConditionedStep::read;
    case CommandKind::verify:
      return ConditionedStep::verify;
    case CommandKind::syncCache:
      return ConditionedStep::syncCache;
    case CommandKind::zoneReset:
    case CommandKind::invalidate:
      break;
  }
  throw std::logic_error("no condition of the agent selects this kind of command");
}

std::optional<CommandKind> kindOf(ConditionedStep step) {
  switch (step) {
    case ConditionedStep::read:
      return CommandKind::read;
    case ConditionedStep::verify:
      return CommandKind::verify;
    case ConditionedStep::write:
      return CommandKind::write;
    case ConditionedStep::writeAtomic:
      return CommandKind::writeAtomic;
    case ConditionedStep::writeSame:
      return CommandKind::writeSame;
    case ConditionedStep::trim:
      return CommandKind::trim;
    case ConditionedStep::syncCache:
      return CommandKind::syncCache;
    case ConditionedStep::zoneReset:
      return CommandKind::zoneReset;
    case ConditionedStep::invalidate:
      return CommandKind::invalidate;
    case ConditionedStep::e2e:
    case ConditionedStep::powerToggle:
    case ConditionedStep::reset:
      break;
  }
  return std::nullopt;
}

ConditionNames::ConditionNames(const std::vector<std::string>& further) : names_(stepNames(agentSteps)) {
  const std::vector<std::string> steps = stepNames(conditionedSteps);
  for (const std::string& name : further) {
    if (!isName(name)) {
      throw ConfigurationError("'" + name +
                               "' cannot name a condition; begin with a letter and use letters, digits, '_' and '-'");
    }
    if (std::find(steps.begin(), steps.end(), name) != steps.end()) {
      throw ConfigurationError("a condition cannot be named '" + name + "', which is a step's name; choose another");
    }
    if (std::find(names_.begin(), names_.end(), name) != names_.end()) {
      throw ConfigurationError("the condition '" + name + "' is named twice; name it once");
    }
    if (names_.size() == mostConditions) {
      throw ConfigurationError("the condition '" + name + "' is one too many; a test has at most " +
                               std::to_string(mostConditions - agentSteps) + " of its own");
    }
    names_.push_back(name);
  }
}

uint64_t ConditionNames::bitOf(std::string_view name, std::string_view where) const {
  const auto found = std::find(names_.begin(), names_.end(), name);
  if (found != names_.end()) {
    return uint64_t{1} << static_cast<uint32_t>(found - names_.begin());
  }
  const std::string meant = didYouMean(name, names_);
  throw ConfigurationError(
      "'" + std::string(name) + "' in " + std::string(where) + " is no condition" +
      (meant.empty() ? "; add it to the conditions of the test, or choose of " + joined(names_) : meant));
}

std::vector<std::string> ConditionNames::namesOf(uint64_t mask) const {
  std::vector<std::string> names;
  for (size_t bit = 0; bit < names_.size(); ++bit) {
    if ((mask >> bit & 1) != 0) {
      names.push_back(names_[bit]);
    }
  }
  return names;
}

std::string ConditionNames::listOf(uint64_t mask) const {
  const std::vector<std::string> names = namesOf(mask);
  std::string text;
  for (size_t i = 0; i < names.size(); ++i) {
    const char* between = i == 0 ? "" : i + 1 == names.size() ? " and " : ", ";
    text.append(between).append("'").append(names[i]).append("'");
  }
  return text;
}

uint64_t ConditionNames::allBits() const { return ~uint64_t{0} >> (mostConditions - names_.size()); }

}  // namespace corvane::host
