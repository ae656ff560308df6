#pragma once

#include <gtest/gtest.h>

#include <filesystem>
#include <map>
#include <memory>
#include <ostream>
#include <stdexcept>
#include <string>

#include "tests/support/ShellCommand.h"
#include "tests/support/TempFolder.h"

namespace corvane::package {

enum class Kind { prefix, debianPackage };

inline void PrintTo(Kind kind, std::ostream* out) { *out << (kind == Kind::prefix ? "prefix" : "debianPackage"); }

/// Runs a line; throws with all that it said when it does not end with 0.
inline std::string mustRun(const std::string& line) {
  const tests::ShellEnd end = tests::runShell(line);
  if (end.status != 0) {
    throw std::runtime_error("exit status " + std::to_string(end.status) + " of: " + line + "\n" + end.out);
  }
  return end.out;
}

/// The built project in a folder of its own, which is gone when the program ends.
class Installation {
 public:
  /// Installed or unpacked when it is first asked for. Throws std::runtime_error with what the tools said.
  static const Installation& of(Kind kind) {
    static std::map<Kind, std::unique_ptr<const Installation>> made;
    std::unique_ptr<const Installation>& one = made[kind];
    if (one == nullptr) {
      one.reset(new Installation(kind));
    }
    return *one;
  }

  std::string prefix() const { return folder_ / "prefix"; }
  /// A path below the prefix.
  std::string operator/(const std::string& path) const { return prefix() + "/" + path; }
  /// For what a test makes; beside the prefix.
  std::string scratch(const std::string& name) const { return folder_ / name; }
  /// The Debian package that was unpacked here; empty for a prefix.
  const std::string& package() const { return package_; }

 private:
  explicit Installation(Kind kind) {
    if (kind == Kind::prefix) {
      // Moved after it was installed: nothing in it may know where it was.
      mustRun(CMAKE_PROGRAM " --install '" BUILD_FOLDER "' --prefix '" + (folder_ / "first") + "'");
      std::filesystem::rename(folder_ / "first", prefix());
    } else {
      pack();
      mustRun("dpkg-deb -x '" + package_ + "' '" + (folder_ / "unpacked") + "'");
      std::filesystem::rename(folder_ / "unpacked/usr", prefix());
    }
  }

  void pack() {
    // What is packed was built with this test.
    mustRun("cd '" BUILD_FOLDER "' && " CPACK_PROGRAM " -D CPACK_INSTALL_COMMANDS= -B '" + (folder_ / "packing") + "'");
    for (const auto& entry : std::filesystem::directory_iterator(folder_ / "packing")) {
      if (entry.path().extension() == ".deb") {
        package_ = entry.path().string();
        return;
      }
    }
    throw std::runtime_error("cpack made no package");
  }

  tests::TempFolder folder_;
  std::string package_;
};

}  // namespace corvane::package
