#include "host/run/PluginLoader.h"

#include <dlfcn.h>

#include <cstring>
#include <utility>

#include "host/run/ConfigurationError.h"

namespace corvane::host {
namespace {

using InitAgent = int (*)(vdl::AgentTable*);

/// The loader's text, which repeats the path in front of the cause.
std::string loaderText(const std::string& path) {
  const char* text = dlerror();
  std::string cause = text == nullptr ? "unknown cause" : text;
  const std::string prefix = path + ": ";
  return cause.rfind(prefix, 0) == 0 ? cause.substr(prefix.size()) : cause;
}

/// The first callback that is missing; null when there is none.
const char* emptySlot(const vdl::AgentTable& table) {
  const std::pair<const char*, bool> slots[] = {
      {"startTest", table.startTest != nullptr},
      {"stopTest", table.stopTest != nullptr},
      {"execute", table.execute != nullptr},
      {"deviceReset", table.deviceReset != nullptr},
      {"initConfigData", table.initConfigData != nullptr},
      {"freeConfigData", table.freeConfigData != nullptr},
      {"initDriveData", table.initDriveData != nullptr},
      {"freeDriveData", table.freeDriveData != nullptr},
      {"getHelpStr", table.getHelpStr != nullptr},
  };
  for (const auto& [name, filled] : slots) {
    if (!filled) {
      return name;
    }
  }
  return nullptr;
}

/// @return an empty text when the table was filled
std::string fillTable(void* handle, vdl::AgentTable& table) {
  void* symbol = dlsym(handle, "initAgent");
  if (symbol == nullptr) {
    return "has no initAgent entry, so it is no agent; name the agent's library";
  }
  InitAgent initAgent = nullptr;
  static_assert(sizeof(initAgent) == sizeof(symbol));
  std::memcpy(&initAgent, &symbol, sizeof(initAgent));
  if (const int status = initAgent(&table); status != 0) {
    return "could not be initialised, its initAgent returned " + std::to_string(status) + "; use another build of it";
  }
  if (const char* slot = emptySlot(table); slot != nullptr) {
    return std::string("left the callback ") + slot + " empty; use a build that fills all nine slots";
  }
  return {};
}

}  // namespace

AgentPlugin::AgentPlugin(const std::string& path) : handle_(dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL)) {
  if (handle_ == nullptr) {
    throw ConfigurationError("plug-in '" + path + "' cannot be loaded: " + loaderText(path) +
                             "; give the path of an agent's library");
  }
  const std::string fault = fillTable(handle_, table_);
  if (!fault.empty()) {
    dlclose(handle_);
    throw ConfigurationError("plug-in '" + path + "' " + fault);
  }
}

AgentPlugin::~AgentPlugin() { dlclose(handle_); }

}  // namespace corvane::host
