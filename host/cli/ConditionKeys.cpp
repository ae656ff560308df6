#include <optional>
#include <utility>

#include "host/cli/TestKey.h"
#include "host/cli/TestKeyHelpers.h"
#include "host/cli/UsageError.h"
#include "host/run/ConfigurationError.h"

namespace corvane::host {
namespace {

constexpr const char* group = "Conditions";

/// What messages call a part of a text.
std::string nameOfPart(const std::string& where, const std::string& text, const std::string& part) {
  return std::string(where).append(" '").append(text).append("': ").append(part);
}

[[noreturn]] void refuse(const std::string& where, const std::string& text, const std::string& fault) {
  throw UsageError(where + " '" + text + "' " + fault);
}

/// Changes the plan; what it refuses is named by its place.
template <typename Change>
void changePlan(const std::string& where, Change&& change) {
  try {
    change();
  } catch (const ConfigurationError& error) {
    throw UsageError(where + ": " + error.what());
  }
}

void takeName(RunSettings& settings, const std::string& where, const std::string& text) {
  changePlan(where, [&] { addConditionName(settings.test.conditions, text); });
}

void takeStep(RunSettings& settings, const std::string& where, const std::string& text) {
  const auto given = splitNamedValue(text);
  if (!given.second) {
    refuse(where, text, R"(has no condition; give STEP=CONDITION, such as "trim=trim & !hold")");
  }
  changePlan(where, [&] { setStepCondition(settings.test.conditions, given.first, *given.second); });
}

SettingTexts stepTexts(const RunSettings& settings) {
  SettingTexts texts;
  for (const ConditionedStep step : allConditionedSteps()) {
    if (const std::optional<std::string>& expression = settings.test.conditions.expression(step)) {
      texts.push_back(std::string(stepName(step)).append("=").append(*expression));
    }
  }
  return texts;
}

void takeRandom(RunSettings& settings, const std::string& where, const std::string& text) {
  std::vector<std::pair<std::string, uint64_t>> choices;
  for (const std::string& entry : splitList(text)) {
    const auto [condition, weight] = splitNamedValue(entry);
    if (condition.empty()) {
      refuse(where, text, "names no condition in one place; give names with weights, such as write=3,trim=1");
    }
    choices.emplace_back(condition, weight ? parseCount(nameOfPart(where, text, "weight"), *weight) : 1);
  }
  changePlan(where, [&] { addRandomCondition(settings.test.conditions, choices); });
}

SettingTexts randomTexts(const RunSettings& settings) {
  SettingTexts texts;
  for (const RandomCondition& random : settings.test.conditions.random) {
    std::string& text = texts.emplace_back();
    for (const RandomCondition::Choice& choice : random.choices) {
      text.append(text.empty() ? "" : ",").append(choice.condition).append("=");
      text.append(std::to_string(choice.weight));
    }
  }
  return texts;
}

/// The counts of a phase by their names in its text.
struct PhaseCounts {
  std::optional<uint64_t> every;
  std::optional<uint64_t> forCommands;

  std::optional<uint64_t>* named(const std::string& name) {
    return name == "every" ? &every : name == "for" ? &forCommands : nullptr;
  }
};

void takePhase(RunSettings& settings, const std::string& where, const std::string& text) {
  constexpr const char* remedy = "; give CONDITION,every=N,for=N, such as hold,every=10000,for=500";
  const std::vector<std::string> entries = splitList(text);
  PhaseCounts counts;
  for (size_t i = 1; i < entries.size(); ++i) {
    const auto [name, value] = splitNamedValue(entries[i]);
    std::optional<uint64_t>* const count = counts.named(name);
    if (count == nullptr || !value) {
      refuse(where, text, "holds '" + entries[i] + "', which a phase does not have" + remedy);
    }
    if (*count) {
      refuse(where, text, "says '" + name + "' twice" + remedy);
    }
    *count = parseCount(nameOfPart(where, text, name), *value);
  }
  if (!counts.every || !counts.forCommands) {
    refuse(where, text, std::string("does not say when the phase ") + (counts.every ? "ends" : "begins") + remedy);
  }
  changePlan(where,
             [&] { addConditionPhase(settings.test.conditions, entries.front(), *counts.every, *counts.forCommands); });
}

SettingTexts phaseTexts(const RunSettings& settings) {
  SettingTexts texts;
  for (const ConditionPhase& phase : settings.test.conditions.phases) {
    texts.push_back(phase.condition + ",every=" + std::to_string(phase.everyCommands) +
                    ",for=" + std::to_string(phase.forCommands));
  }
  return texts;
}

std::string stepsHelp() {
  std::string steps;
  for (const ConditionedStep step : allConditionedSteps()) {
    steps.append(steps.empty() ? "" : ", ").append(stepName(step));
  }
  return "Lets a step run only while a condition holds, such as \"trim=trim & !hold\": names joined by '&', at most "
         "one group of names joined by '|', and '!' before single names; a leading '=' clears every other condition "
         "when the step is taken. Nothing behind the '=' takes a step of the agent out. Steps: " +
         steps +
         ". Each but the last three has a condition of its own name, which chooses it. Give it again for further "
         "steps.";
}

}  // namespace

void addConditionKeys(std::vector<TestKey>& keys) {
  keys.push_back({.name = "condition",
                  .value = "NAME",
                  .group = group,
                  .help = "Names a further condition, which the flags below may use: a letter, then letters, digits, "
                          "'_' and '-'. Give it again for further conditions.",
                  .form = TestKeyForm::repeatable,
                  .take = takeName,
                  .texts = [](const RunSettings& settings) { return settings.test.conditions.names; }});
  keys.push_back({.name = "step",
                  .value = "\"STEP=CONDITION\"",
                  .group = group,
                  .help = stepsHelp(),
                  .form = TestKeyForm::table,
                  .table = "step",
                  .entry = "step",
                  .take = takeStep,
                  .texts = stepTexts});
  keys.push_back({.name = "random",
                  .value = "LIST",
                  .group = group,
                  .help = "Sets one of these conditions before each step of the test's loop, by weight: "
                          "write=3,atomic=1,trim=1. Kinds of commands in it take the place of --commands-of, for "
                          "writes or for reads. Give it again for further choices, which are made in this order.",
                  .form = TestKeyForm::repeatable,
                  .take = takeRandom,
                  .texts = randomTexts});
  keys.push_back({.name = "phase",
                  .value = "CONDITION,every=N,for=N",
                  .group = group,
                  .help = "Keeps a condition set for so many commands of a drive, each time that so many were issued: "
                          "hold,every=1e4,for=500. Give it again for further phases.",
                  .form = TestKeyForm::repeatable,
                  .take = takePhase,
                  .texts = phaseTexts});
}

}  // namespace corvane::host
