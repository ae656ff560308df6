#include "host/cli/PluginPath.h"

#include <filesystem>
#include <system_error>

namespace corvane::host {

std::string defaultPluginPath() {
  std::error_code fault;
  const std::filesystem::path program = std::filesystem::read_symlink("/proc/self/exe", fault);
  const std::filesystem::path folder = fault ? std::filesystem::path(".") : program.parent_path();
  return (folder / CORVANE_LIBRARY_FOLDER "/corvane/libcorvane.so").lexically_normal().string();
}

std::string pluginPathFrom(std::string_view named) {
  std::string path(named);
  std::error_code fault;
  if (path.find('/') == std::string::npos && std::filesystem::exists(path, fault)) {
    return "./" + path;
  }
  return path;
}

}  // namespace corvane::host
