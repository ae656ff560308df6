#include "host/cli/NewPaths.h"

#include <filesystem>
#include <system_error>

#include "host/drive/DriveAddress.h"
#include "host/drive/DriveError.h"

namespace corvane::host {

std::string fileOfDrive(const std::string& address) {
  try {
    const DriveAddress parts(address);
    return parts.scheme() == "file" ? parts.target() : "";
  } catch (const DriveAddressError&) {
    return {};  // whoever opens it says what is wrong
  }
}

NewPaths::~NewPaths() {
  for (auto path = absent_.rbegin(); path != absent_.rend(); ++path) {
    std::error_code ignored;
    std::filesystem::remove(*path, ignored);
  }
}

void NewPaths::watch(const std::string& path) {
  std::vector<std::string> missing;
  std::error_code fault;
  for (std::filesystem::path at(path); !at.empty(); at = at.parent_path()) {
    if (std::filesystem::exists(std::filesystem::symlink_status(at, fault)) || at == at.parent_path()) {
      break;
    }
    if (at.has_filename()) {
      missing.push_back(at.string());
    }
  }
  absent_.insert(absent_.end(), missing.rbegin(), missing.rend());
}

void NewPaths::watchDrive(const std::string& address) {
  if (const std::string path = fileOfDrive(address); !path.empty()) {
    watch(path);
  }
}

}  // namespace corvane::host
