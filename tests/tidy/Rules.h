#pragma once

#include <string>
#include <vector>

#include "tests/tidy/SourceTree.h"

namespace corvane::tidy {

/// Each rule returns one line for each breach, "path: what", and nothing for a tree that keeps it.

/// platform includes neither host nor plugin, plugin no host, host no plugin; inside host a layer includes only
/// itself and those below: base, framework and ostra, drive, fault, run, explain, selftest, report, cli. Kinds of drives
/// do not include each other.
std::vector<std::string> wrongIncludes(const std::vector<SourceFile>& files);

/// No source above 800 lines.
std::vector<std::string> longFiles(const std::vector<SourceFile>& files);

/// Every header has "#pragma once".
std::vector<std::string> unguardedHeaders(const std::vector<SourceFile>& files);

/// Every *Test.cpp is named, or its unit is, in a CMake file of its folder.
std::vector<std::string> unregisteredTests(const std::vector<SourceFile>& files);

/// No unfinished work, no switched-off test, no path of somebody's machine.
std::vector<std::string> forbiddenWords(const std::vector<SourceFile>& files);

}  // namespace corvane::tidy
