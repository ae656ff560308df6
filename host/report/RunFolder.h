#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace corvane::host::report {

/// What a run left on a disk: its result, and the reports and dumps that the result names.
class RunFolder {
 public:
  /// Finds the result: the file itself, or in a folder result.json, or else the one *.json that is a run's result.
  ///
  /// Throws ReportError when there is none, when there are several to choose from, and for what cannot be read.
  explicit RunFolder(const std::string& fileOrFolder);

  const std::string& resultFile() const { return resultFile_; }
  const std::string& resultText() const { return resultText_; }
  /// The folder of the result.
  std::filesystem::path folder() const;

  /// Where a file stands that the result names: beside the result, even if the run knew it by another path, or where
  /// the run left it. Nothing when it is nowhere.
  std::optional<std::filesystem::path> find(const std::string& named) const;

  /// The content of a file that the result names; nothing when it cannot be read or has more than `mostBytes` bytes,
  /// and `problem` then says so in one line.
  std::optional<std::string> read(const std::string& named, uintmax_t mostBytes, std::string& problem) const;

 private:
  std::string resultFile_;
  std::string resultText_;
};

/// The files of a finding by what they hold; empty names for those that are missing.
struct EvidenceFiles {
  std::string trace;
  std::string drive;
  std::string reference;
};

/// Sorts the files that a finding names: a report has the ending .txt, and of dumps (.bin) the drive's comes first; a
/// number may follow either ending.
EvidenceFiles evidenceFiles(const std::vector<std::string>& files);

}  // namespace corvane::host::report
