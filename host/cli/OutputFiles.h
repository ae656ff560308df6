#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace corvane::host {

/// Sees to it that reports can be written to a folder: creates it, with its parents, when it is not there, and tries
/// it with a file that is removed again. Throws UsageError naming the flag and the cause.
void prepareOutputDirectory(std::string_view flag, const std::string& path);

/// A file that a run writes, and the flag that names it.
struct NamedFile {
  std::string flag;
  std::string path;  ///< empty: none
};

/// Sees to it that no output overwrites another one or a drive. Throws UsageError.
///
/// @param drives paths; empty ones are no files
void checkDistinct(const std::vector<std::string>& drives, const std::vector<NamedFile>& outputs);

/// Sees to it that `replaceFile` will work, without touching the file. Throws UsageError.
void checkReplaceable(std::string_view flag, const std::string& path);

/// Puts a whole text into a file: written beside it under another name and then renamed, so that nobody ever sees a
/// part of it. Throws UsageError when that fails; the file is then as it was.
void replaceFile(std::string_view flag, const std::string& path, std::string_view text);

}  // namespace corvane::host
