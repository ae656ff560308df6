#include "host/drive/guard/DeviceUse.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <set>
#include <sstream>

#include "host/drive/guard/DeviceOpeners.h"

namespace corvane::host {
namespace {

/// A line of /proc/self/mountinfo (proc(5)).
struct Mount {
  std::string number;  ///< of the file system; Btrfs makes one up that no device has
  std::string place;
  std::string kind;
  std::string source;
};

/// "\040" and the like become what they stand for.
std::string unescaped(const std::string& text) {
  constexpr size_t digits = 3;
  constexpr int octal = 8;
  std::string plain;
  for (size_t i = 0; i < text.size(); ++i) {
    if (text[i] == '\\' && i + digits < text.size() && text[i + 1] >= '0' && text[i + 1] <= '3') {
      plain += static_cast<char>(std::stoi(text.substr(i + 1, digits), nullptr, octal));
      i += digits;
    } else {
      plain += text[i];
    }
  }
  return plain;
}

/// Lines or words of a text. Without memory it throws, where a stream would just end and a mount be missed.
std::istringstream reading(const std::string& text) {
  std::istringstream in(text);
  in.exceptions(std::ios::badbit);
  return in;
}

std::vector<Mount> mountsOf(const SystemView& system) {
  std::vector<Mount> mounts;
  std::istringstream lines = reading(system.text("/proc/self/mountinfo"));
  for (std::string line; std::getline(lines, line);) {
    std::istringstream words = reading(line);
    Mount mount;
    std::string skipped;
    words >> skipped >> skipped >> mount.number >> skipped >> mount.place;
    while (words >> skipped && skipped != "-") {
    }
    words >> mount.kind >> mount.source;
    mount.place = unescaped(mount.place);
    mount.source = unescaped(mount.source);
    mounts.push_back(std::move(mount));
  }
  return mounts;
}

bool isSystemPlace(const std::string& place) {
  return place == "/" || place == "/usr" || place == "/boot" || place.starts_with("/boot/");
}

/// "'/a', '/b' and 3 more places"
std::string placesText(const std::vector<std::string>& places) {
  constexpr size_t most = 3;
  std::string text;
  for (size_t i = 0; i < std::min(places.size(), most); ++i) {
    text += (i == 0 ? "'" : ", '") + places[i] + "'";
  }
  return places.size() > most ? text + " and " + std::to_string(places.size() - most) + " more places" : text;
}

/// A device that shares blocks with the one that is asked about.
struct Piece {
  std::string name;
  std::string number;
  std::string called;  ///< the subject of a clause: "it", "its partition sdb1"
};

class Search {
 public:
  Search(std::string devicePath, const SystemView& system)
      : path_(std::move(devicePath)), system_(system), mounts_(mountsOf(system)) {}

  std::vector<DeviceUse> everything() {
    const std::string name = system_.nameOf(system_.numberOf(path_));
    if (name.empty()) {
      return {};
    }
    addWhole(name, "it");
    if (const std::string disk = system_.diskOf(name); !disk.empty()) {
      add(disk, "the disk " + disk + " that it is part of");
      addUsers(disk, "the disk " + disk + " that it is part of");
    }
    for (const Piece& piece : pieces_) {
      addMounts(piece);
      addSwap(piece);
    }
    addBtrfs();
    addOpeners();
    return std::move(uses_);
  }

 private:
  bool known(const std::string& name) const {
    return std::any_of(pieces_.begin(), pieces_.end(), [&](const Piece& piece) { return piece.name == name; });
  }

  void add(const std::string& name, const std::string& called) {
    pieces_.push_back({name, system_.line(SystemView::folderOf(name) + "/dev"), called});
  }

  /// A device, its partitions, and what is built on them.
  void addWhole(const std::string& name, const std::string& called) {
    if (known(name)) {
      return;
    }
    add(name, called);
    addUsers(name, called);
    for (const std::string& part : system_.names(SystemView::folderOf(name))) {
      if (system_.exists(SystemView::folderOf(name) + "/" + part + "/partition")) {
        addWhole(part, called == "it" ? "its partition " + part : "the partition " + part);
      }
    }
  }

  /// The devices that are built on one.
  void addUsers(const std::string& name, const std::string& called) {
    for (const std::string& holder : system_.names(SystemView::folderOf(name) + "/holders")) {
      addUser(holder, builtDevice(holder), called);
    }
    const std::string number = system_.line(SystemView::folderOf(name) + "/dev");
    for (const std::string& loop : system_.names("/sys/class/block")) {
      const std::string file = system_.line(SystemView::folderOf(loop) + "/loop/backing_file");
      if (!file.empty() && (system_.numberOf(file) == number || system_.fileSystemNumberOf(file) == number)) {
        addUser(loop, loopDevice(loop, file), called);
      }
    }
  }

  void addUser(const std::string& name, const std::string& called, const std::string& used) {
    if (!known(name)) {
      uses_.push_back({called + " uses " + used});
      addWhole(name, called);
    }
  }

  static std::string loopDevice(const std::string& name, const std::string& file) {
    return "the loop device " + name + " (of '" + file + "')";
  }

  std::string builtDevice(const std::string& name) const {
    const std::string folder = SystemView::folderOf(name);
    if (const std::string title = system_.line(folder + "/dm/name"); !title.empty()) {
      const std::string uuid = system_.line(folder + "/dm/uuid");
      const char* kind = uuid.starts_with("LVM-")     ? "LVM volume"
                         : uuid.starts_with("CRYPT-") ? "encrypted volume"
                         : uuid.starts_with("mpath-") ? "multipath device"
                                                      : "device mapper volume";
      return std::string("the ") + kind + " '" + title + "' (" + name + ")";
    }
    return (system_.exists(folder + "/md") ? "the RAID array " : "the device ") + name;
  }

  void addMounts(const Piece& piece) {
    std::vector<std::string> places;
    for (const Mount& mount : mounts_) {
      if (mount.number == piece.number) {
        places.push_back(mount.place);
      }
    }
    addPlaces(piece.called + " is mounted at ", places);
  }

  void addPlaces(const std::string& clause, const std::vector<std::string>& places) {
    if (!places.empty()) {
      uses_.push_back({clause + placesText(places), std::any_of(places.begin(), places.end(), isSystemPlace)});
    }
  }

  void addSwap(const Piece& piece) {
    std::istringstream lines = reading(system_.text("/proc/swaps"));
    std::string line;
    std::getline(lines, line);  // the heading
    while (std::getline(lines, line)) {
      const std::string file = unescaped(line.substr(0, line.find_first_of(" \t")));
      if (system_.numberOf(file) == piece.number) {
        uses_.push_back({piece.called + " is active swap space", true});
      } else if (system_.fileSystemNumberOf(file) == piece.number) {
        uses_.push_back({piece.called + " holds the active swap file '" + file + "'", true});
      }
    }
  }

  /// A Btrfs has many devices, a number that is none of theirs, and is mounted by the name of any.
  void addBtrfs() {
    for (const std::string& uuid : system_.names("/sys/fs/btrfs")) {
      const std::vector<std::string> members = system_.names("/sys/fs/btrfs/" + uuid + "/devices");
      for (const Piece& piece : pieces_) {
        if (std::find(members.begin(), members.end(), piece.name) != members.end()) {
          const std::vector<std::string> places = btrfsPlaces(members);
          const std::string clause = piece.called + " is one of the " + std::to_string(members.size()) +
                                     " devices of the mounted Btrfs " + uuid;
          places.empty() ? uses_.push_back({clause}) : addPlaces(clause + ", at ", places);
        }
      }
    }
  }

  std::vector<std::string> btrfsPlaces(const std::vector<std::string>& members) const {
    std::vector<std::string> places;
    for (const Mount& mount : mounts_) {
      if (mount.kind != "btrfs") {
        continue;
      }
      const std::string source = system_.nameOf(system_.numberOf(mount.source));
      // "/dev/root" names no device: then it may be this one.
      if (source.empty() || std::find(members.begin(), members.end(), source) != members.end()) {
        places.push_back(mount.place);
      }
    }
    return places;
  }

  void addOpeners() {
    std::set<std::string> numbers;
    for (const Piece& piece : pieces_) {
      numbers.insert(piece.number);
    }
    std::string others;
    const bool explained = !uses_.empty();
    for (const DeviceOpener& opener : openersOf(numbers, system_)) {
      if (opener.writes && !opener.own) {
        uses_.push_back({"it is opened for writing by " + opener.process});
      }
      others += (others.empty() ? "" : ", ") + opener.process;
    }
    if (!explained && heldExclusively()) {
      uses_.push_back({others.empty() ? "it is opened exclusively, by the kernel or from another mount namespace"
                                      : "it is opened exclusively, and opened by " + others});
    }
  }

  bool heldExclusively() const {
    const int file = open(system_.path(path_).c_str(), O_RDONLY | O_EXCL | O_CLOEXEC | O_NONBLOCK);
    if (file >= 0) {
      close(file);
      return false;
    }
    return errno == EBUSY;
  }

  std::string path_;
  const SystemView& system_;
  std::vector<Mount> mounts_;
  std::vector<Piece> pieces_;
  std::vector<DeviceUse> uses_;
};

}  // namespace

std::vector<DeviceUse> findUse(const std::string& devicePath, const SystemView& system) {
  return Search(devicePath, system).everything();
}

}  // namespace corvane::host
