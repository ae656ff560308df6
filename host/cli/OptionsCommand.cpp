#include "host/cli/OptionsCommand.h"

#include "host/base/TextFormat.h"
#include "host/cli/ExitStatus.h"
#include "host/cli/UsageError.h"
#include "host/run/AgentConfig.h"
#include "host/run/PluginLoader.h"

namespace corvane::host {
namespace {

constexpr size_t indent = 4;

std::string valuesText(const OptionInfo& option) {
  std::string text = optionKindName(option.kind);
  switch (option.kind) {
    case OptionKind::u32:
      return text + ", " + std::to_string(option.min) + " to " + std::to_string(option.max) + ", default " +
             option.defaultText;
    case OptionKind::boolean:
      return text + ", true or false, default " + option.defaultText;
    case OptionKind::text:
    case OptionKind::buffer:
      return text + ", default \"" + printable(option.defaultText) + "\"" +
             (option.kind == OptionKind::buffer ? ", @FILE takes a file's bytes" : "");
    case OptionKind::condition:
      break;
  }
  return text + ", follows from the commands that the test selects";
}

}  // namespace

std::string optionsText(const OptionRegistry& options, size_t columns) {
  std::string text;
  for (const OptionInfo& option : options.options()) {
    text += option.name + "  (" + valuesText(option) + ")\n";
    text += wrapText(option.help, columns, indent);
    if (!option.deprecation.empty()) {
      text += wrapText("Deprecated: " + option.deprecation, columns, indent);
    }
  }
  return text;
}

int showOptions(Console& out, const std::string& pluginPath) {
  const AgentPlugin plugin(pluginPath);
  const AgentConfig config(plugin.table());
  out.line("Options of the agent " + pluginPath + ". Set one with: corvane run … --set \"Name=value\"\n");
  out.write(optionsText(config.options(), out.columns()));
  return exit_status::clean;
}

void checkOptionSettings(const std::string& pluginPath,
                         const std::vector<std::pair<std::string, std::string>>& settings,
                         const std::function<std::string(const std::string& option)>& placeOf) {
  const AgentPlugin plugin(pluginPath);
  AgentConfig config(plugin.table());
  for (const auto& [name, value] : settings) {
    if (const std::string complaint = config.options().set(name, value); !complaint.empty()) {
      std::string text = placeOf(name);
      text.append(" '").append(name).append("=").append(value).append("': ").append(complaint);
      throw UsageError(text);
    }
  }
}

}  // namespace corvane::host
