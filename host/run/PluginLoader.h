#pragma once

#include <string>

#include "vdl/Agent.h"

namespace corvane::host {

/// An agent's library in this process; unloads it when destroyed.
class AgentPlugin {
 public:
  /// Loads the library and asks its `initAgent` for the callbacks.
  ///
  /// Throws ConfigurationError, with the library unloaded again, when the file cannot be loaded, has no `initAgent`,
  /// or when `initAgent` fails or leaves one of the nine slots empty.
  ///
  /// @param path used as it stands when it contains a slash; otherwise it is looked for as libraries are
  explicit AgentPlugin(const std::string& path);
  ~AgentPlugin();
  AgentPlugin(const AgentPlugin&) = delete;
  AgentPlugin& operator=(const AgentPlugin&) = delete;

  /// All nine slots are set; valid as long as the object.
  const vdl::AgentTable& table() const { return table_; }

 private:
  void* handle_ = nullptr;
  vdl::AgentTable table_{};
};

}  // namespace corvane::host
