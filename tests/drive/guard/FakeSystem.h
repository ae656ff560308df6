#pragma once

#include <filesystem>
#include <string>

#include "host/drive/guard/SystemView.h"
#include "tests/support/TempFolder.h"

namespace corvane::host::testing {

/// A tree that stands in for /sys, /proc and /dev, with devices that no test could have otherwise.
class FakeSystem {
 public:
  FakeSystem() : view_(folder_.path()) { mounts(""); }

  const SystemView& view() const { return view_; }

  void disk(const std::string& name, const std::string& number) { device(name, name, number); }

  void partition(const std::string& disk, const std::string& name, const std::string& number) {
    device(disk + "/" + name, name, number);
    file("/sys/class/block/" + name + "/partition", "1\n");
  }

  /// Something that is built on a device.
  void holder(const std::string& device, const std::string& name) const {
    std::filesystem::create_directories(folder_ / ("sys/class/block/" + device + "/holders/" + name));
  }

  void mounts(const std::string& lines) const { file("/proc/self/mountinfo", lines); }

  void file(const std::string& absolute, const std::string& text) const {
    const std::filesystem::path path = view_.path(absolute);
    std::filesystem::create_directories(path.parent_path());
    tests::writeFile(path, text);
  }

  /// A node of the tree that is another one of the machine.
  void link(const std::string& absolute, const std::string& target) const {
    const std::filesystem::path path = view_.path(absolute);
    std::filesystem::create_directories(path.parent_path());
    std::filesystem::create_symlink(target, path);
  }

 private:
  void device(const std::string& place, const std::string& name, const std::string& number) const {
    const std::filesystem::path real = folder_ / ("sys/devices/" + place);
    std::filesystem::create_directories(real);
    tests::writeFile(real / "dev", number + "\n");
    for (const char* links : {"sys/class/block", "sys/dev/block"}) {
      std::filesystem::create_directories(folder_ / links);
    }
    std::filesystem::create_directory_symlink(real, folder_ / ("sys/class/block/" + name));
    std::filesystem::create_directory_symlink(real, folder_ / ("sys/dev/block/" + number));
  }

  tests::TempFolder folder_;
  SystemView view_;
};

}  // namespace corvane::host::testing
