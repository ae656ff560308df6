#pragma once

#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "host/cli/Console.h"
#include "host/framework/OptionRegistry.h"

namespace corvane::host {

/// The options of an agent for people: name, kind, range, default, help, and whether it is deprecated.
///
/// @param columns lines are at most so long where words allow it
std::string optionsText(const OptionRegistry& options, size_t columns);

/// `corvane options`: loads the agent and prints its options. Returns the exit status.
///
/// Throws ConfigurationError for a plug-in that does not load.
int showOptions(Console& out, const std::string& pluginPath);

/// Tries option settings on an agent of its own, so that a wrong one is refused before anything else happens.
///
/// @param placeOf where an option was set, as messages name it
///
/// Throws UsageError that names the place and the setting, ConfigurationError for a plug-in that does not load.
void checkOptionSettings(const std::string& pluginPath,
                         const std::vector<std::pair<std::string, std::string>>& settings,
                         const std::function<std::string(const std::string& option)>& placeOf);

}  // namespace corvane::host
