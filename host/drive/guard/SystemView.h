#pragma once

#include <string>
#include <vector>

namespace corvane::host {

/// Where the kernel tells of block devices: sysfs, procfs and the device nodes.
///
/// Devices have their kernel's names here ("sda1", "dm-0"), and numbers as "major:minor". What cannot be read is empty;
/// nothing throws but for want of memory (std::bad_alloc).
class SystemView {
 public:
  /// @param root in front of /sys, /proc and /dev; empty for the machine itself
  explicit SystemView(std::string root = {}) : root_(std::move(root)) {}

  std::string path(const std::string& absolute) const { return root_ + absolute; }
  /// A file's text; empty when there is none.
  std::string text(const std::string& absolute) const;
  /// The first line of a file, without its end.
  std::string line(const std::string& absolute) const;
  /// What is in a folder, sorted by name; nothing when there is none.
  std::vector<std::string> names(const std::string& absolute) const;
  bool exists(const std::string& absolute) const;

  /// The number of the block device at a path, also through links; empty when it is none.
  std::string numberOf(const std::string& devicePath) const;
  /// The number of the file system that a file is on; empty when there is no such file.
  std::string fileSystemNumberOf(const std::string& filePath) const;
  /// The kernel's name of a block device; empty when there is none of that number.
  std::string nameOf(const std::string& number) const;
  /// Its folder in sysfs, without the root.
  static std::string folderOf(const std::string& name) { return "/sys/class/block/" + name; }

  /// The disk that a partition is on; empty for what is no partition.
  std::string diskOf(const std::string& name) const;

  /// The node of the block device behind a node: itself for a block device, the disk of a SCSI generic one
  /// (/dev/sg3 -> /dev/sdb), the namespace's of an NVMe generic one (/dev/ng0n1 -> /dev/nvme0n1). Empty when the kernel
  /// has none, as for a tape or a path that is no device.
  std::string blockDeviceOf(const std::string& nodePath) const;

 private:
  std::string root_;
};

}  // namespace corvane::host
