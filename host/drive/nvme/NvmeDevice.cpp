#include "host/drive/nvme/NvmeDevice.h"

#include <fcntl.h>
#include <linux/nvme_ioctl.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <fstream>
#include <system_error>

#include "host/drive/DriveError.h"
#include "host/drive/nvme/NvmeKernelForm.h"

namespace corvane::host {
namespace {

namespace fs = std::filesystem;

constexpr uint64_t pageBytes = 4096;
constexpr uint64_t usualSegments = 127;  ///< pieces of memory in one command of the kernel's PCIe driver
constexpr uint64_t usualKiB = 4096;
constexpr const char* blockPrefix = "nvme";
constexpr const char* genericPrefix = "ng";

std::string textOf(int error) { return std::generic_category().message(error); }

[[noreturn]] void fail(const std::string& path, const std::string& fault) {
  throw DriveError("NVMe device '" + path + "' " + fault);
}

std::string remedyOf(int error) {
  switch (error) {
    case ENOENT:
    case ENXIO:
    case ENODEV:
      return "; see in /dev whether the namespace is still there, such as /dev/nvme0n1";
    case EACCES:
    case EPERM:
      return "; run as root";
    case EBUSY:
      return ": it is mounted or somebody else uses it; end that first";
    default:
      return "; see what the kernel says about it (dmesg)";
  }
}

/// "/sys/dev/block/259:0", where the kernel describes the node.
std::string descriptionFolder(const struct stat& status) {
  return std::string("/sys/dev/") + (S_ISBLK(status.st_mode) ? "block/" : "char/") +
         std::to_string(major(status.st_rdev)) + ":" + std::to_string(minor(status.st_rdev));
}

/// The last part of where a link of sysfs leads to; empty without one.
std::string linkedName(const std::string& link) {
  std::error_code error;
  const fs::path real = fs::canonical(link, error);
  return error ? "" : real.filename().string();
}

bool isControllerName(const std::string& name) {
  return name.starts_with(blockPrefix) && name.size() > 4 &&
         std::all_of(name.begin() + 4, name.end(), [](char c) { return c >= '0' && c <= '9'; });
}

/// Whether the kernel's NVMe driver made the node: its parent is a controller, or the subsystem of several.
bool isMadeByNvmeDriver(const std::string& folder) {
  return linkedName(folder + "/device/subsystem").starts_with(blockPrefix);
}

uint64_t readNumber(const std::string& path, uint64_t otherwise) {
  std::ifstream in(path);
  uint64_t value = 0;
  return in >> value && value != 0 ? value : otherwise;
}

}  // namespace

NvmeDevice::NvmeDevice(const std::string& path, Overwriting overwriting) : overwriting_(overwriting) {
  try {
    openNamed(path);
    openSibling();
    readLimits();
  } catch (...) {
    close();
    throw;
  }
}

NvmeDevice::~NvmeDevice() { close(); }

void NvmeDevice::close() {
  for (const Node* node : {&block_, &generic_}) {
    if (node->fd >= 0) {
      ::close(node->fd);
    }
  }
}

int NvmeDevice::open(const std::string& path, bool isBlock) const {
  const int access = opensForWriting(overwriting_) ? O_RDWR : O_RDONLY;
  const int claim = isBlock && opensExclusively(overwriting_) ? O_EXCL : 0;
  return ::open(path.c_str(), access | claim | O_CLOEXEC | O_NONBLOCK);
}

void NvmeDevice::openNamed(const std::string& path) {
  struct stat status {};
  if (stat(path.c_str(), &status) != 0) {
    fail(path, "cannot be opened: " + textOf(errno) + remedyOf(errno));
  }
  const bool isBlock = S_ISBLK(status.st_mode);
  if (!isBlock && !S_ISCHR(status.st_mode)) {
    fail(path, "is no device; name a namespace, such as nvme:/dev/nvme0n1");
  }
  const std::string folder = descriptionFolder(status);
  if (fs::exists(folder + "/partition")) {
    fail(path,
         "is a partition, and commands would go past its ends; name the whole namespace, such as nvme:/dev/nvme0n1");
  }
  // Opening what is none could fail for a cause of its own, or even do something.
  const std::string noNamespace = "is not an NVMe namespace; name one, such as nvme:/dev/nvme0n1 or nvme:/dev/ng0n1";
  if (fs::exists(folder) && !isMadeByNvmeDriver(folder)) {
    fail(path, noNamespace);
  }
  Node& node = isBlock ? block_ : generic_;
  node.path = path;
  node.fd = open(path, isBlock);
  if (node.fd < 0) {
    fail(path, "cannot be opened: " + textOf(errno) + remedyOf(errno));
  }
  const int nsid = ioctl(node.fd, NVME_IOCTL_ID);
  if (nsid <= 0) {
    const bool isGone = errno == ENODEV || errno == ENXIO;
    fail(path, isGone ? "is gone: " + textOf(errno) + remedyOf(errno) : noNamespace);
  }
  nsid_ = static_cast<uint32_t>(nsid);
  // A name of the kernel's own, not the link by which the user may have come.
  const std::string name = linkedName(folder);
  if (!name.empty() && fs::exists("/dev/" + name)) {
    node.path = "/dev/" + name;
  }
  findController(folder);
}

void NvmeDevice::openSibling() {
  const Node& named = block_.fd >= 0 ? block_ : generic_;
  Node& sibling = block_.fd >= 0 ? generic_ : block_;
  const std::string from = block_.fd >= 0 ? blockPrefix : genericPrefix;
  const std::string to = block_.fd >= 0 ? genericPrefix : blockPrefix;
  const std::string name = fs::path(named.path).filename();
  if (!name.starts_with(from)) {
    return;
  }
  const std::string path = "/dev/" + to + name.substr(from.size());
  if (!fs::exists(path)) {
    return;
  }
  const bool isBlock = &sibling == &block_;
  const int fd = open(path, isBlock);
  if (fd < 0 && isBlock) {
    // Through the generic device we could write over a mounted file system.
    fail(path, "cannot be opened: " + textOf(errno) + remedyOf(errno));
  }
  if (fd >= 0 && ioctl(fd, NVME_IOCTL_ID) == static_cast<int>(nsid_)) {
    sibling = {.path = path, .fd = fd};
  } else if (fd >= 0) {
    ::close(fd);
  }
}

void NvmeDevice::findController(const std::string& folder) {
  const std::string parent = linkedName(folder + "/device");
  if (isControllerName(parent)) {
    controller_ = "/dev/" + parent;
    return;
  }
  // With several paths to a namespace its parent is the subsystem, and any of its controllers does.
  std::error_code error;
  for (const fs::directory_entry& entry : fs::directory_iterator(folder + "/device", error)) {
    if (isControllerName(entry.path().filename())) {
      controller_ = "/dev/" + entry.path().filename().string();
    }
  }
}

void NvmeDevice::readLimits() {
  const std::string queue = "/sys/class/block/" + fs::path(block_.path).filename().string() + "/queue/";
  const uint64_t segments = readNumber(queue + "max_segments", usualSegments);
  const uint64_t bytes = readNumber(queue + "max_hw_sectors_kb", usualKiB) * 1024;
  // Memory that is not at the start of a page takes part of one page more.
  mostBytes_ = std::max(std::min((segments - 1) * pageBytes, bytes), pageBytes);
}

int32_t NvmeDevice::admin(const NvmeCommand& command, uint32_t* result) const {
  nvme_passthru_cmd64 form = nvmeKernelForm<nvme_passthru_cmd64>(command);
  const int status = ioctl(fd(), NVME_IOCTL_ADMIN64_CMD, &form);
  if (result != nullptr) {
    *result = static_cast<uint32_t>(form.result);
  }
  return status < 0 ? -errno : status;
}

int32_t NvmeDevice::io(const NvmeCommand& command) const {
  nvme_passthru_cmd64 form = nvmeKernelForm<nvme_passthru_cmd64>(command);
  const int status = ioctl(fd(), NVME_IOCTL_IO64_CMD, &form);
  return status < 0 ? -errno : status;
}

std::string NvmeDevice::whyNoReset() const {
  if (controller_.empty()) {
    return "the kernel names no controller for it";
  }
  return access(controller_.c_str(), R_OK | W_OK) == 0 ? "" : controller_ + ": " + textOf(errno);
}

void NvmeDevice::resetController() const {
  const int controller = ::open(controller_.c_str(), O_RDWR | O_CLOEXEC);
  const bool done = controller >= 0 && ioctl(controller, NVME_IOCTL_RESET) == 0;
  const int error = errno;
  if (controller >= 0) {
    ::close(controller);
  }
  if (!done) {
    fail(controller_, "cannot be reset: " + textOf(error) + remedyOf(error));
  }
}

}  // namespace corvane::host
