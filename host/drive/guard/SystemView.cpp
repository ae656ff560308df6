#include "host/drive/guard/SystemView.h"

#include <sys/stat.h>
#include <sys/sysmacros.h>

#include <algorithm>
#include <filesystem>
#include <optional>

#include "host/base/SystemFile.h"

namespace corvane::host {
namespace {

namespace fs = std::filesystem;

std::string numberText(dev_t device) { return std::to_string(major(device)) + ":" + std::to_string(minor(device)); }

std::optional<struct stat> statusOf(const std::string& path) {
  struct stat status {};
  return stat(path.c_str(), &status) == 0 ? std::optional(status) : std::nullopt;
}

/// The last name of a path after its links, as far as they exist.
std::string resolvedName(const std::string& path) {
  std::error_code ignored;
  const fs::path resolved = fs::weakly_canonical(path, ignored);
  return (ignored ? fs::path(path) : resolved).filename().string();
}

}  // namespace

std::string SystemView::text(const std::string& absolute) const { return contentOf(path(absolute)); }

std::string SystemView::line(const std::string& absolute) const {
  const std::string all = text(absolute);
  return all.substr(0, all.find('\n'));
}

std::vector<std::string> SystemView::names(const std::string& absolute) const {
  std::vector<std::string> found;
  std::error_code error;
  for (fs::directory_iterator entry(path(absolute), error), end; !error && entry != end; entry.increment(error)) {
    found.push_back(entry->path().filename().string());
  }
  std::sort(found.begin(), found.end());
  return found;
}

bool SystemView::exists(const std::string& absolute) const {
  std::error_code ignored;
  return fs::exists(path(absolute), ignored);
}

std::string SystemView::numberOf(const std::string& devicePath) const {
  const std::optional<struct stat> status = statusOf(path(devicePath));
  if (status && S_ISBLK(status->st_mode)) {
    return numberText(status->st_rdev);
  }
  // A name that has no node, such as one of a tree that stands in for the machine's.
  return status || !devicePath.starts_with("/dev/") ? "" : line(folderOf(resolvedName(path(devicePath))) + "/dev");
}

std::string SystemView::fileSystemNumberOf(const std::string& filePath) const {
  const std::optional<struct stat> status = statusOf(path(filePath));
  return status ? numberText(status->st_dev) : "";
}

std::string SystemView::nameOf(const std::string& number) const {
  const std::string link = "/sys/dev/block/" + number;
  return !number.empty() && exists(link) ? resolvedName(path(link)) : "";
}

std::string SystemView::diskOf(const std::string& name) const {
  if (!exists(folderOf(name) + "/partition")) {
    return "";
  }
  std::error_code ignored;
  return fs::weakly_canonical(path(folderOf(name)), ignored).parent_path().filename().string();
}

std::string SystemView::blockDeviceOf(const std::string& nodePath) const {
  if (!numberOf(nodePath).empty()) {
    return nodePath;
  }
  std::string name = resolvedName(path(nodePath));
  const std::optional<struct stat> status = statusOf(path(nodePath));
  if (status && S_ISCHR(status->st_mode)) {
    // A node may have any name; what the kernel calls it is what counts.
    const std::string link = "/sys/dev/char/" + numberText(status->st_rdev);
    name = exists(link) ? resolvedName(path(link)) : name;
  }
  const std::vector<std::string> disks = names("/sys/class/scsi_generic/" + name + "/device/block");
  if (!disks.empty()) {
    return "/dev/" + disks.front();
  }
  if (name.starts_with("ng")) {
    const std::string disk = "nvme" + name.substr(2);
    return exists(folderOf(disk)) ? "/dev/" + disk : "";
  }
  return "";
}

}  // namespace corvane::host
