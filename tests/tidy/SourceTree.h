#pragma once

#include <filesystem>
#include <string>
#include <vector>

namespace corvane::tidy {

/// One file of the tree.
struct SourceFile {
  std::string path;  ///< from the root: "host/run/StepLoop.cpp"
  std::string text;
};

/// Sources, headers, scripts and documents of the tree, without what builds leave; sorted by path.
std::vector<SourceFile> sourceTree(const std::filesystem::path& root);

/// What a line includes, in order: of `#include "a/b.h"` the part between the quotes, of `<…>` nothing.
std::vector<std::string> quotedIncludes(const std::string& text);

}  // namespace corvane::tidy
