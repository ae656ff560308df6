#pragma once

#include <chrono>
#include <cstdint>
#include <string>
#include <vector>

#include "host/base/AlignedMemory.h"
#include "host/drive/Drive.h"

namespace corvane::host {

/// The beginning and the end of a drive, and what else was asked for, in a file in memory that is as long as the drive.
/// What was not read is a hole there and reads as zeros; protection bytes are left out.
///
/// Reads go through the drive's own read commands, so that a drive that the kernel has no device for is looked at like
/// any other.
class DriveImage {
 public:
  static constexpr uint64_t headBytes = uint64_t{5} << 20;  ///< all that has its mark counted from the beginning
  static constexpr uint64_t tailBytes = uint64_t{2} << 20;  ///< and from the end

  /// @param drive       has no command outstanding, and outlives the object
  /// @param longestRead how long the drive may take to answer one
  ///
  /// Throws DriveError when the machine has no memory for the file, when no file can be so long, and as the drive does.
  DriveImage(Drive& drive, std::chrono::milliseconds longestRead);
  ~DriveImage();
  DriveImage(const DriveImage&) = delete;
  DriveImage& operator=(const DriveImage&) = delete;

  int file() const { return file_; }
  uint64_t bytes() const { return bytes_; }

  /// Reads a further place of the drive into the image, in whole blocks; what lies beyond its end is left out.
  ///
  /// @param bytes from here on, counted without protection bytes
  void addPlace(uint64_t firstByte, uint64_t bytes);

  /// What the image has there.
  std::vector<uint8_t> at(uint64_t firstByte, uint64_t bytes) const;

  /// The places that the drive did not read, "LBAs 0 to 127"; empty when it read everything.
  const std::string& unread() const { return unread_; }

 private:
  void addBlocks(uint64_t lba, uint32_t blocks);
  bool read(uint64_t lba, uint32_t blocks);
  /// Waits for the one command that is outstanding.
  DriveCompletion answer();
  /// Ends the one command that is outstanding.
  void takeBack();

  Drive& drive_;
  std::chrono::milliseconds longestRead_;
  DriveGeometry geometry_;
  uint64_t bytes_;
  int file_ = -1;
  AlignedMemory memory_;
  uint64_t nextId_ = 1;
  bool unwritten_ = false;  ///< the last read met blocks that a zoned drive has not written
  std::string unread_;
  uint32_t unreadPlaces_ = 0;
};

}  // namespace corvane::host
