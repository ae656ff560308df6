#pragma once

#include <string>
#include <vector>

#include "Framework.h"

namespace randomhost {

/// Whether a line is one that the agent's texts allow on its channel.
bool isDocumented(const Line& line);

/// The formats that no line matched so far: how far a run got.
std::vector<std::string> neverSaid();

/// Whether a text is what a printf format may have become. Knows the conversions of the agent's texts.
bool matches(const char* format, const char* text);

}  // namespace randomhost
