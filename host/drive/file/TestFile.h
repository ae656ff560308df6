#pragma once

#include <sys/types.h>

#include <cstdint>
#include <optional>
#include <string>

namespace corvane::host {

/// How a regular file is to be opened as a drive.
struct TestFileSettings {
  enum class Direct : uint8_t { wherePossible, always, never };

  std::string path;
  std::optional<uint64_t> createBytes;  ///< created with this size when it does not exist; checked when it does
  uint32_t sectorBytes = 512;
  Direct direct = Direct::wherePossible;
};

/// A regular file, open for reading and writing and locked against other users of this program.
///
/// Throws DriveError, naming the path, the cause and the remedy, for a file that does not exist and shall not be
/// created, is no regular file, has another size or no whole number of sectors, or is in use. What the constructor
/// created it takes away again when it throws.
class TestFile {
 public:
  explicit TestFile(const TestFileSettings& settings);
  ~TestFile();
  TestFile(const TestFile&) = delete;
  TestFile& operator=(const TestFile&) = delete;

  int fd() const { return fd_; }
  const std::string& path() const { return settings_.path; }
  uint64_t sizeBytes() const { return sizeBytes_; }

  /// Transfers go past the page cache.
  bool direct() const { return direct_; }
  /// Why not, for people; empty when `direct` or when nobody wanted it.
  const std::string& whyBuffered() const { return whyBuffered_; }
  /// What the memory of a transfer must be aligned to, bytes.
  uint64_t memoryAlignment() const { return memoryAlignment_; }

  /// Whether the file system can punch holes.
  bool punchesHoles() const { return punchesHoles_; }

 private:
  void openOrCreate();
  void checkKind();
  void lock();
  void settleSize();
  void chooseDirect();
  std::string tryDirect();
  void probeHoles();
  [[noreturn]] void refuseKind(mode_t mode) const;
  [[noreturn]] void fail(const std::string& fault) const;

  TestFileSettings settings_;
  int fd_ = -1;
  bool created_ = false;
  uint64_t sizeBytes_ = 0;
  bool direct_ = false;
  std::string whyBuffered_;
  uint64_t memoryAlignment_ = 1;
  bool punchesHoles_ = false;
};

}  // namespace corvane::host
