#include "tests/tidy/SourceTree.h"

#include <algorithm>
#include <array>
#include <fstream>
#include <sstream>

namespace corvane::tidy {
namespace {

bool isText(const std::filesystem::path& path) {
  constexpr std::array<const char*, 13> kinds{".cpp", ".h",  ".md",  ".sh",   ".txt", ".cmake", ".json",
                                              ".map", ".py", ".css", ".html", ".js",  ""};
  const std::string kind = path.extension().string();
  return std::any_of(kinds.begin(), kinds.end(), [&kind](const char* known) { return kind == known; });
}

}  // namespace

std::vector<SourceFile> sourceTree(const std::filesystem::path& root) {
  std::vector<SourceFile> files;
  auto entry = std::filesystem::recursive_directory_iterator(root);
  for (const auto end = std::filesystem::end(entry); entry != end; ++entry) {
    const std::string name = entry->path().filename().string();
    const bool top = entry.depth() == 0;
    if (entry->is_directory() && (name == ".git" || (top && (name == "build" || name == "out")))) {
      entry.disable_recursion_pending();
    } else if (entry->is_regular_file() && name != ".git" && isText(entry->path())) {
      std::ifstream stream(entry->path(), std::ios::binary);
      std::ostringstream text;
      text << stream.rdbuf();
      files.push_back({std::filesystem::relative(entry->path(), root).string(), text.str()});
    }
  }
  std::sort(files.begin(), files.end(), [](const auto& a, const auto& b) { return a.path < b.path; });
  return files;
}

std::vector<std::string> quotedIncludes(const std::string& text) {
  std::vector<std::string> includes;
  std::istringstream lines(text);
  for (std::string line; std::getline(lines, line);) {
    std::istringstream words(line);
    char hash = 0;
    std::string directive;
    char quote = 0;
    std::string path;
    if (words >> hash && hash == '#' && words >> directive && directive == "include" && words >> quote &&
        quote == '"' && std::getline(words, path, '"')) {
      includes.push_back(path);
    }
  }
  return includes;
}

}  // namespace corvane::tidy
