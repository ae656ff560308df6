// Options of the agent and conditions of a test, as people write them.

#include <algorithm>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "fuzz/InputBytes.h"
#include "fuzz/Target.h"
#include "host/framework/OptionRegistry.h"
#include "host/framework/OptionText.h"
#include "host/run/ConditionExpression.h"
#include "host/run/ConditionNames.h"
#include "host/run/ConfigurationError.h"
#include "vdl/ConfigManager.h"

using corvane::fuzz::InputBytes;
using corvane::fuzz::require;
using corvane::fuzz::requireMessage;
using namespace corvane::host;

namespace {

/// Somebody's options, one of each kind, and one whose limits the input chooses.
struct Options {
  uint32_t number = 10;
  bool flag = false;
  std::string text = "here";
  vdl::Buffer buffer;
  vdl::Condition condition;
  uint32_t limited = 0;
  OptionRegistry registry;

  explicit Options(InputBytes& input) {
    vdl::ConfigManager& manager = registry.platform();
    require(manager.addU32("Queue Size", &number, 1, 1000, "") == 0, "a number is taken");
    require(manager.addBool("Slide", &flag, nullptr) == 0, "a switch is taken");
    require(manager.addString("Path", &text, "") == 0, "a text is taken");
    require(manager.addBuffer("Data", &buffer, "") == 0, "bytes are taken");
    require(manager.addCondition("Read Condition", &condition, "") == 0, "a condition is taken");
    const auto least = input.number<uint32_t>();
    const auto most = input.number<uint32_t>();
    limited = input.number<uint32_t>();
    std::string name(input.line());
    // An agent's names are texts; one of them may be offered when a name is misspelt.
    std::replace_if(
        name.begin(), name.end(), [](char c) { return static_cast<unsigned char>(c) < 0x20; }, '_');
    const bool fits = least <= limited && limited <= most && registry.find(name) == nullptr;
    const bool taken = manager.addU32(name.c_str(), &limited, least, most, "") == 0;
    require(taken == fits, "a number is taken when its default is in its limits");
    require(registry.options().size() == (taken ? 6U : 5U), "what is not taken is not there");
  }
};

std::vector<std::string> valuesOf(const Options& options) {
  std::vector<std::string> values;
  for (const OptionInfo& option : options.registry.options()) {
    values.push_back(options.registry.valueText(option));
  }
  return values;
}

void checkStored(const OptionInfo& option, const Options& options, std::string_view value) {
  switch (option.kind) {
    case OptionKind::u32: {
      const uint32_t stored = *static_cast<const uint32_t*>(option.target);
      require(stored >= option.min && stored <= option.max, "a number stays in its limits");
      require(parseU32(value) == stored && parseU32(std::to_string(stored)) == stored, "a number is the one written");
      return;
    }
    case OptionKind::boolean:
      require(parseBool(value) == options.flag, "a switch is the one written");
      return;
    case OptionKind::text:
      require(options.text == value, "a text is the one written");
      return;
    case OptionKind::buffer:
      require(std::string_view(reinterpret_cast<const char*>(options.buffer.data), options.buffer.size) == value,
              "bytes are the ones written");
      return;
    case OptionKind::condition:
      break;
  }
  require(false, "a condition is not set by a text");
}

void setOption(Options& options, const std::string& name, const std::string& value) {
  if (value.starts_with('@')) {
    return;  // names a file of this machine
  }
  const std::vector<std::string> before = valuesOf(options);
  const std::string complaint = options.registry.set(name, value);
  const OptionInfo* option = options.registry.find(name);
  if (!complaint.empty()) {
    requireMessage(complaint, '"' + name + '"', name + value);
    require(option == nullptr || complaint.find('"' + value + '"') != std::string::npos, "a refused value is named");
    require(valuesOf(options) == before, "a refused value changes nothing");
    return;
  }
  require(option != nullptr, "only an option is set");
  checkStored(*option, options, value);
  const std::string written = options.registry.valueText(*option);
  if (option->kind != OptionKind::buffer) {
    require(options.registry.set(name, written).empty() && options.registry.valueText(*option) == written,
            "a value that is written again is the same");
  }
}

void setOptions(InputBytes& input) {
  Options options(input);
  for (int count = 0; !input.atEnd() && count < 16; ++count) {
    const std::string_view line = input.line();
    const size_t equals = line.find('=');
    const std::string value(equals == std::string_view::npos ? "" : line.substr(equals + 1));
    setOption(options, std::string(line.substr(0, equals)), value);
  }
}

/// Whether a condition holds in a state, by its definition.
bool holds(const vdl::Condition& condition, uint64_t state) {
  return (condition.anyMask | condition.allMask | condition.noneMask) != 0 && (state & condition.noneMask) == 0 &&
         (state & condition.allMask) == condition.allMask &&
         (condition.anyMask == 0 || (state & condition.anyMask) != 0);
}

std::optional<ConditionNames> namesOf(std::string_view line) {
  std::vector<std::string> names;
  for (std::string_view rest = line; !rest.empty();) {
    const size_t blank = std::min(rest.find(' '), rest.size());
    names.emplace_back(rest.substr(0, blank));
    rest.remove_prefix(std::min(blank + 1, rest.size()));
  }
  try {
    return ConditionNames(names);
  } catch (const ConfigurationError& error) {
    requireMessage(error.what(), "'", line);
    return std::nullopt;
  }
}

void checkCondition(const vdl::Condition& condition, const ConditionNames& names, InputBytes& states) {
  const uint64_t all = condition.anyMask | condition.allMask | condition.noneMask;
  require(all != 0, "a condition that is read is about something");
  require((all & ~names.allBits()) == 0, "a condition is about the names that there are");
  require(holds(condition, condition.anyMask | condition.allMask), "a condition that is read can hold");
  const std::string written = conditionText(condition, names);
  const vdl::Condition again = parseCondition(written, names);
  require(again.replace == condition.replace, "a written condition clears the others as before");
  require(conditionText(again, names) == written, "a condition is written alike again");
  for (int i = 0; i < 8; ++i) {
    const auto state = states.number<uint64_t>();
    require(holds(again, state) == holds(condition, state), "a written condition holds when the first one does");
  }
}

void readCondition(InputBytes& input) {
  const std::optional<ConditionNames> names = namesOf(input.line());
  if (!names) {
    return;
  }
  std::string text(input.line());
  // A command line has no zero bytes, and test files and documents are refused that have.
  text.resize(std::min(text.find('\0'), text.size()));
  try {
    const vdl::Condition condition = parseCondition(text, *names);
    checkCondition(condition, *names, input);
  } catch (const ConfigurationError& error) {
    requireMessage(error.what(), "'" + text, text);
  }
}

}  // namespace

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  InputBytes input(data, size);
  if (input.number<uint8_t>() == '&') {
    readCondition(input);
  } else {
    setOptions(input);
  }
  return 0;
}
