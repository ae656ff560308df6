#pragma once

#include <cstdint>
#include <string>

#include "host/drive/nvme/NvmeCommand.h"

namespace corvane::host {

/// The kernel's nodes of an NVMe namespace: the one that was named, its sibling, and their controller's.
///
/// While the object lives nobody else can mount the namespace or use it exclusively, where it has a block device.
class NvmeDevice {
 public:
  /// Throws DriveError when there is no such node, it is no NVMe namespace, or somebody uses it.
  ///
  /// @param path "/dev/nvme0n1" or "/dev/ng0n1", or a symbolic link to one
  explicit NvmeDevice(const std::string& path);
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
  void openNamed(const std::string& path);
  void openSibling();
  void findController(const std::string& folder);
  void readLimits();
  void close();

  Node block_;
  Node generic_;
  std::string controller_;  ///< its node; empty when none was found
  uint32_t nsid_ = 0;
  uint64_t mostBytes_ = 0;
};

}  // namespace corvane::host
