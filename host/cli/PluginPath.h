#pragma once

#include <string>
#include <string_view>

namespace corvane::host {

/// The agent that comes with the program: corvane/libcorvane.so in the folder of libraries,
/// which is found from the folder of the running program (../lib), wherever both were put.
std::string defaultPluginPath();

/// The path that the loader shall take for what a user named: a file's name without a slash means the file in the
/// working directory when there is one, and not only a library that the system knows.
std::string pluginPathFrom(std::string_view named);

}  // namespace corvane::host
