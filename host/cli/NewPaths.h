#pragma once

#include <string>
#include <vector>

namespace corvane::host {

/// The path of the file behind a drive address; empty for a drive that is no file, and for an address that is wrong.
std::string fileOfDrive(const std::string& address);

/// Files and folders that did not exist before; takes them away again when destroyed, unless they are kept.
///
/// So a test that is refused late, after its drive file or its folder was made, leaves nothing behind. What existed
/// before is never touched, nor a folder that has something in it.
class NewPaths {
 public:
  NewPaths() = default;
  ~NewPaths();
  NewPaths(const NewPaths&) = delete;
  NewPaths& operator=(const NewPaths&) = delete;

  /// Notes a path, and its parent folders, if they do not exist; before anybody makes them.
  void watch(const std::string& path);
  /// As `watch`, for the file behind a drive address; does nothing for drives that are no files.
  void watchDrive(const std::string& address);

  /// What was made since then stays.
  void keep() { absent_.clear(); }

 private:
  std::vector<std::string> absent_;  // a parent before what is in it
};

}  // namespace corvane::host
