#include "FileHelpers.h"

#include <cerrno>
#include <filesystem>
#include <system_error>

namespace vdl::fs {

namespace {

namespace stdfs = std::filesystem;

// What cannot be classified counts as absent; nothing here may throw for a path that is merely odd.
bool exists(const std::string& path) {
  std::error_code error;
  return stdfs::exists(path, error) && !error;
}

bool isDirectory(const stdfs::path& path) {
  std::error_code error;
  return stdfs::is_directory(path, error) && !error;
}

/// A name to open.
struct Name {
  std::string path;
  bool free;  ///< nothing stood there when it was looked at
};

/// The first name of the numbered series that is free; the plain name, with result 5, when none is.
Name numberedFreeName(const std::string& path, int& result) {
  for (unsigned number = 0; number <= 0xFFF; ++number) {
    char suffix[8];
    std::snprintf(suffix, sizeof(suffix), ".%03x", number);
    std::string candidate = path + suffix;
    if (!exists(candidate)) {
      return {candidate, true};
    }
  }
  result = 5;
  return {path, false};
}

Name nameToOpen(const std::string& path, unsigned flags, int& result) {
  if ((flags & numberedName) == 0) {
    return {path, false};
  }
  return exists(path) ? numberedFreeName(path, result) : Name{path, true};
}

/// Opens a name; a free one only as a file of its own.
///
/// @param lost set when another thread or program has taken the free name since, and another one must be found
FILE* open(const Name& name, const std::string& mode, bool& lost) {
  if (name.free && mode.front() == 'w') {
    FILE* file = std::fopen(name.path.c_str(), (mode + "x").c_str());
    if (file != nullptr || errno != EEXIST) {
      return file;
    }
    lost = exists(name.path);
    if (lost) {
      return nullptr;
    }
    // A link that leads nowhere: it counts as absent, and what it names is made.
  }
  return std::fopen(name.path.c_str(), mode.c_str());
}

/// Looks why the name could not be opened, and makes the missing folders if it may.
void prepareParent(const std::string& name, unsigned flags, int& result) {
  const stdfs::path parent = stdfs::path(name).parent_path();
  if (exists(parent.string())) {
    result = isDirectory(parent) ? 3 : 1;
    return;
  }
  if ((flags & createMissingParents) == 0) {
    result = 2;
    return;
  }
  std::error_code error;
  stdfs::create_directories(parent, error);
  if (error) {
    result = 4;
  }
}

FILE* openInCurrentDirectory(std::string& name, const std::string& requested, const std::string& mode, int& result) {
  std::error_code error;
  const stdfs::path directory = stdfs::current_path(error);
  if (error) {
    return nullptr;
  }
  std::string local = directory.string() + "/" + stdfs::path(requested).filename().string();
  int ignored = 0;
  FILE* file = openFile(local, mode, ignored, numberedName);
  if (file != nullptr) {
    result = 6;
    name = local;
  }
  return file;
}

}  // namespace

// NOLINTNEXTLINE(performance-unnecessary-value-param): the signature is shared with other agents' helpers
FILE* openFile(std::string& path, std::string mode, int& result, unsigned flags) {
  Name name;
  FILE* file = nullptr;
  bool lost = false;
  do {
    lost = false;
    name = nameToOpen(path, flags, result);
    file = open(name, mode, lost);
    if (file == nullptr && !lost) {
      prepareParent(name.path, flags, result);
      file = open(name, mode, lost);
    }
  } while (lost);
  if (file == nullptr) {
    result = 3;
    if ((flags & fallBackToCurrentDirectory) != 0) {
      file = openInCurrentDirectory(name.path, path, mode, result);
    }
  }
  if (file != nullptr) {
    path = name.path;
  }
  return file;
}

}  // namespace vdl::fs
