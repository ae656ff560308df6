#pragma once

#include <string>

#include "host/cli/Console.h"

namespace corvane::host {

/// `corvane usage`: prints the agent's own usage text. Returns the exit status.
///
/// Throws ConfigurationError for a plug-in that does not load.
int showUsage(Console& out, const std::string& pluginPath);

}  // namespace corvane::host
