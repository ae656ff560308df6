#include "host/cli/UsageCommand.h"

#include "host/cli/ExitStatus.h"
#include "host/run/ConfigurationError.h"
#include "host/run/PluginLoader.h"

namespace corvane::host {

int showUsage(Console& out, const std::string& pluginPath) {
  const AgentPlugin plugin(pluginPath);
  const char* text = plugin.table().getHelpStr();
  if (text == nullptr) {
    throw ConfigurationError("the agent '" + pluginPath + "' has no usage text; ask who made it");
  }
  out.line(text);
  return exit_status::clean;
}

}  // namespace corvane::host
