#pragma once

#include <cstdint>
#include <string>

#include "host/drive/Overwriting.h"
#include "host/drive/nvme/NvmeCommand.h"

namespace corvane::host {

/// The kernel's nodes of an NVMe namespace: the one that was named, its sibling, and their controller's.
///
/// A namespace that is opened for overwriting of empty drives cannot be mounted or claimed by anybody else while the
/// object lives, where it has a block device.
class NvmeDevice {
 public:
  /// Throws DriveError when there is no such node, it is no NVMe namespace, or somebody uses it.
  ///
  /// @param path "/dev/nvme0n1" or "/dev/ng0n1", or a symbolic link to one
  NvmeDevice(const std::string& path, Overwriting overwriting);
  ~NvmeDevice();
  NvmeDevice(const NvmeDevice&) = delete;
  NvmeDevice& operator=(const NvmeDevice&) = delete;

  uint32_t nsid() const { return nsid_; }
  /// The descriptor that commands go to, and its node.
  int fd() const { return generic_.fd >= 0 ? generic_.fd : block_.fd; }
  const std::string& node() const { return generic_.fd >= 0 ? generic_.path : block_.path; }
  /// Whether `fd` is the generic device, which alone takes io_uring commands.
  bool isGeneric() const { return generic_.fd >= 0; }
  /// The block device; empty when the kernel has none for this namespace.
  const std::string& blockNode() const { return block_.path; }

  /// The most bytes of one command, from the limits of the kernel's queue.
  uint64_t mostBytes() const { return mostBytes_; }

  /// Carry out a command and wait; NVMe status or negated errno. Any thread.
  int32_t admin(const NvmeCommand& command, uint32_t* result) const;
  int32_t io(const NvmeCommand& command) const;

  /// Why the controller cannot be reset; empty when it can.
  std::string whyNoReset() const;
  /// Throws DriveError.
  void resetController() const;

 private:
  struct Node {
    std::string path;
    int fd = -1;
  };
  /// A descriptor, or -1 and errno.
  int open(const std::string& path, bool isBlock) const;
  void openNamed(const std::string& path);
  void openSibling();
  void findController(const std::string& folder);
  void readLimits();
  void close();

  Overwriting overwriting_;
  Node block_;
  Node generic_;
  std::string controller_;  ///< its node; empty when none was found
  uint32_t nsid_ = 0;
  uint64_t mostBytes_ = 0;
};

}  // namespace corvane::host
