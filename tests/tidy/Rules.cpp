#include "tests/tidy/Rules.h"

#include <algorithm>
#include <map>

namespace corvane::tidy {
namespace {

constexpr size_t mostLines = 800;

bool startsWith(const std::string& text, const std::string& beginning) { return text.rfind(beginning, 0) == 0; }

bool endsWith(const std::string& text, const std::string& end) {
  return text.size() >= end.size() && text.compare(text.size() - end.size(), end.size(), end) == 0;
}

bool isCode(const SourceFile& file) { return endsWith(file.path, ".cpp") || endsWith(file.path, ".h"); }

/// Folders of the host, lowest first; those of one rank do not know each other.
const std::map<std::string, int>& hostRanks() {
  static const std::map<std::string, int> ranks{
      {"host/base/", 0}, {"host/framework/", 1}, {"host/ostra/", 1},    {"host/drive/", 2},  {"host/fault/", 3},
      {"host/run/", 4},  {"host/explain/", 5},   {"host/selftest/", 6}, {"host/report/", 7}, {"host/cli/", 8}};
  return ranks;
}

std::pair<std::string, int> hostLayer(const std::string& path) {
  for (const auto& [folder, rank] : hostRanks()) {
    if (startsWith(path, folder)) {
      return {folder, rank};
    }
  }
  return {"", -1};
}

/// The kind of drive whose folder a file is in; empty for what all kinds share.
std::string driveKind(const std::string& path) {
  const std::string drives = "host/drive/";
  const size_t slash = startsWith(path, drives) ? path.find('/', drives.size()) : std::string::npos;
  return slash == std::string::npos ? "" : path.substr(drives.size(), slash - drives.size());
}

/// Kinds of drives do not know each other, and what they share knows none of them; "engine" is shared by those that go
/// through the kernel's files, and the factory opens every kind.
bool drivesMayInclude(const std::string& path, const std::string& include) {
  const std::string kind = driveKind(include);
  return !startsWith(path, "host/drive/") || kind.empty() || kind == driveKind(path) || kind == "engine" ||
         startsWith(path, "host/drive/DriveFactory.");
}

bool mayInclude(const std::string& path, const std::string& include, const std::vector<std::string>& pluginHeaders) {
  const bool ofPlugin = std::find(pluginHeaders.begin(), pluginHeaders.end(), include) != pluginHeaders.end();
  if (startsWith(path, "platform/")) {
    return !startsWith(include, "host/") && !startsWith(include, "plugin/") && !ofPlugin;
  }
  if (startsWith(path, "plugin/")) {
    return !startsWith(include, "host/");
  }
  if (startsWith(path, "host/")) {
    if (startsWith(include, "plugin/") || ofPlugin) {
      return false;
    }
    const auto [fromFolder, from] = hostLayer(path);
    const auto [toFolder, to] = hostLayer(include);
    return (to < from || fromFolder == toFolder || !startsWith(include, "host/")) && drivesMayInclude(path, include);
  }
  return true;
}

std::string folderOf(const std::string& path) { return path.substr(0, path.rfind('/') + 1); }

std::string stemOf(const std::string& path) {
  const size_t begin = path.rfind('/') + 1;
  return path.substr(begin, path.rfind('.') - begin);
}

}  // namespace

std::vector<std::string> wrongIncludes(const std::vector<SourceFile>& files) {
  std::vector<std::string> pluginHeaders;
  for (const SourceFile& file : files) {
    if (startsWith(file.path, "plugin/") && endsWith(file.path, ".h")) {
      pluginHeaders.push_back(file.path.substr(file.path.rfind('/') + 1));
    }
  }
  std::vector<std::string> breaches;
  for (const SourceFile& file : files) {
    if (!isCode(file)) {
      continue;
    }
    for (const std::string& include : quotedIncludes(file.text)) {
      if (!mayInclude(file.path, include, pluginHeaders)) {
        breaches.push_back(file.path + ": must not include " + include);
      }
    }
  }
  return breaches;
}

std::vector<std::string> longFiles(const std::vector<SourceFile>& files) {
  std::vector<std::string> breaches;
  for (const SourceFile& file : files) {
    const auto lines = static_cast<size_t>(std::count(file.text.begin(), file.text.end(), '\n'));
    if (isCode(file) && lines > mostLines) {
      breaches.push_back(file.path + ": " + std::to_string(lines) + " lines");
    }
  }
  return breaches;
}

std::vector<std::string> unguardedHeaders(const std::vector<SourceFile>& files) {
  std::vector<std::string> breaches;
  for (const SourceFile& file : files) {
    if (endsWith(file.path, ".h") && file.text.find("#pragma once\n") == std::string::npos) {
      breaches.push_back(file.path + ": no #pragma once");
    }
  }
  return breaches;
}

std::vector<std::string> unregisteredTests(const std::vector<SourceFile>& files) {
  std::map<std::string, std::string> cmakeOf;
  for (const SourceFile& file : files) {
    if (endsWith(file.path, "CMakeLists.txt") || endsWith(file.path, ".cmake")) {
      cmakeOf[folderOf(file.path)] += file.text;
    }
  }
  std::vector<std::string> breaches;
  for (const SourceFile& file : files) {
    if (!startsWith(file.path, "tests/") || !endsWith(file.path, "Test.cpp")) {
      continue;
    }
    const std::string& cmake = cmakeOf[folderOf(file.path)];
    const std::string stem = stemOf(file.path);
    // A CMake file may list units and add the ending itself.
    const std::string unit = stem.substr(0, stem.size() - 4);
    const bool named = cmake.find(stem + ".cpp") != std::string::npos;
    const bool listed =
        cmake.find("${unit}Test.cpp") != std::string::npos &&
        (cmake.find(" " + unit + " ") != std::string::npos || cmake.find(" " + unit + ")") != std::string::npos ||
         cmake.find(" " + unit + "\n") != std::string::npos);
    if (!named && !listed) {
      breaches.push_back(file.path + ": in no CMake file of its folder");
    }
  }
  return breaches;
}

std::vector<std::string> forbiddenWords(const std::vector<SourceFile>& files) {
  // Cut in two, so that this list is not found in itself. A test may be skipped, but must say what is missing.
  const std::string joint;
  const std::vector<std::string> words{"TO" + joint + "DO",          "FIX" + joint + "ME",  "DISABLED" + joint + "_",
                                       "GTEST_" + joint + "SKIP();", "/wo" + joint + "rk/", "/ho" + joint + "me/"};
  std::vector<std::string> breaches;
  for (const SourceFile& file : files) {
    for (const std::string& word : words) {
      if (file.text.find(word) != std::string::npos) {
        breaches.push_back(file.path + ": " + word);
      }
    }
  }
  return breaches;
}

}  // namespace corvane::tidy
