#include "host/drive/guard/DeviceOpeners.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cstdlib>
#include <filesystem>

namespace corvane::host {
namespace {

bool isProcess(const std::string& name) {
  return std::all_of(name.begin(), name.end(), [](unsigned char sign) { return std::isdigit(sign) != 0; });
}

std::string processText(const std::string& name, const std::string& number, bool own) {
  return name + " (process " + number + (own ? ", this program itself)" : ")");
}

/// What /proc/PID/fdinfo/N says behind "flags:", the flags of open(2) in octal.
bool opensForWriting(const std::string& info) {
  const size_t flags = info.find("flags:");
  if (flags == std::string::npos) {
    return false;
  }
  constexpr int octal = 8;
  return (std::strtoul(info.c_str() + flags + 6, nullptr, octal) & O_ACCMODE) != O_RDONLY;
}

}  // namespace

std::vector<DeviceOpener> openersOf(const std::set<std::string>& numbers, const SystemView& system) {
  std::vector<DeviceOpener> openers;
  const std::string own = std::to_string(getpid());
  for (const std::string& process : system.names("/proc")) {
    if (!isProcess(process)) {
      continue;
    }
    const std::string folder = "/proc/" + process;
    const std::string files = folder + "/fd/";
    const std::string infos = folder + "/fdinfo/";
    bool opened = false;
    bool writes = false;
    for (const std::string& file : system.names(files)) {
      std::error_code error;
      const std::string target = std::filesystem::read_symlink(system.path(files + file), error).string();
      // Nothing outside of /dev is asked what it is: it may be on a server that does not answer.
      if (!error && target.starts_with("/dev/") && numbers.count(system.numberOf(target)) != 0) {
        opened = true;
        writes |= opensForWriting(system.text(infos + file));
      }
    }
    if (opened) {
      openers.push_back({processText(system.line(folder + "/comm"), process, process == own), writes, process == own});
    }
  }
  return openers;
}

}  // namespace corvane::host
