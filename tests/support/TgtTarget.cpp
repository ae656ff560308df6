#include "tests/support/TgtTarget.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/ptrace.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <set>
#include <sstream>
#include <stdexcept>
#include <thread>
#include <utility>

#include "tests/support/ShellCommand.h"

namespace corvane::tests {
namespace {

namespace fs = std::filesystem;
using namespace std::chrono_literals;

constexpr const char* daemon = "/usr/sbin/tgtd";
constexpr const char* controller = "/usr/sbin/tgtadm";

uint16_t freePort() {
  const int place = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  sockaddr_in name{};
  name.sin_family = AF_INET;
  name.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  socklen_t bytes = sizeof name;
  const bool found = bind(place, reinterpret_cast<sockaddr*>(&name), bytes) == 0 &&
                     getsockname(place, reinterpret_cast<sockaddr*>(&name), &bytes) == 0;
  close(place);
  if (!found) {
    throw std::runtime_error("no free port on 127.0.0.1");
  }
  return ntohs(name.sin_port);
}

int freeControlPort() {
  static int last = static_cast<int>(getpid() % 9000) * 3 + 100;  // up to 32767
  do {
    ++last;
  } while (fs::exists("/var/run/tgtd/socket." + std::to_string(last)));
  return last;
}

std::set<std::string> socketsOf(pid_t pid) {
  std::set<std::string> inodes;
  std::error_code ignored;
  for (const auto& entry : fs::directory_iterator("/proc/" + std::to_string(pid) + "/fd", ignored)) {
    const std::string link = fs::read_symlink(entry.path(), ignored).string();
    if (link.starts_with("socket:[")) {
      inodes.insert(link.substr(8, link.size() - 9));
    }
  }
  return inodes;
}

/// Where the process listens, as the kernel writes it: "0100007F:1F90".
std::vector<std::string> listensAt(pid_t pid) {
  const std::set<std::string> own = socketsOf(pid);
  std::vector<std::string> places;
  for (const char* table : {"/proc/net/tcp", "/proc/net/tcp6"}) {
    std::ifstream file(table);
    std::string line;
    std::getline(file, line);
    while (std::getline(file, line)) {
      std::istringstream fields(line);
      std::array<std::string, 10> field;
      for (std::string& text : field) {
        fields >> text;
      }
      if (field[3] == "0A" && own.contains(field[9])) {
        places.push_back(field[1]);
      }
    }
  }
  return places;
}

}  // namespace

std::string TgtTarget::missing() {
  if (access(daemon, X_OK) != 0 || access(controller, X_OK) != 0) {
    return "the Debian package tgt is not installed";
  }
  return geteuid() == 0 ? "" : "tgtd wants root";
}

TgtTarget::TgtTarget(std::vector<TgtUnit> units, std::string user, std::string password)
    : units_(std::move(units)), user_(std::move(user)), password_(std::move(password)) {
  constexpr int tries = 5;
  for (int i = 1;; ++i) {
    port_ = freePort();
    try {
      start();
      return;
    } catch (const std::runtime_error&) {
      kill();
      if (i == tries) {
        throw;
      }
    }
  }
}

TgtTarget::~TgtTarget() { kill(); }

std::string TgtTarget::address(uint32_t lun) const {
  return "iscsi://127.0.0.1:" + std::to_string(port_) + "/" + name_ + "/" + std::to_string(lun);
}

void TgtTarget::start() {
  controlPort_ = freeControlPort();
  spawn();
  awaitPort();
  configure();
}

void TgtTarget::spawn() {
  const std::string portal = "portal=127.0.0.1:" + std::to_string(port_);
  const std::string number = std::to_string(controlPort_);
  const std::string said = folder_ / "said";
  const pid_t parent = getpid();
  pid_ = fork();
  if (pid_ == 0) {
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    if (getppid() != parent) {
      _exit(1);
    }
    dup2(open("/dev/null", O_RDONLY), 0);
    dup2(open(said.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600), 1);
    dup2(1, 2);
    execl(daemon, daemon, "-f", "-C", number.c_str(), "-t", "16", "--iscsi", portal.c_str(), nullptr);
    _exit(1);
  }
  if (pid_ < 0) {
    throw std::runtime_error("cannot start tgtd");
  }
}

// On a port that is taken it says nothing and listens elsewhere.
void TgtTarget::awaitPort() const {
  std::array<char, 16> wanted{};
  std::snprintf(wanted.data(), wanted.size(), "0100007F:%04X", unsigned{port_});
  const auto end = std::chrono::steady_clock::now() + 10s;
  std::vector<std::string> places;
  do {
    std::this_thread::sleep_for(10ms);
    places = listensAt(pid_);
  } while (places.empty() && std::chrono::steady_clock::now() < end);
  if (places != std::vector<std::string>{wanted.data()}) {
    throw std::runtime_error("tgtd does not listen at port " + std::to_string(port_) + " of 127.0.0.1 alone, but at " +
                             (places.empty() ? "none" : places.front()) + "; it says: " + readFile(folder_ / "said"));
  }
}

void TgtTarget::configure() const {
  const std::string target = " --tid 1 ";
  for (int i = 0;; ++i) {
    try {
      control("--op new --mode target" + target + "-T " + name_);
      break;
    } catch (const std::runtime_error&) {
      // Its socket for commands comes a moment after the port.
      constexpr int tries = 50;
      if (i == tries) {
        throw;
      }
      std::this_thread::sleep_for(20ms);
    }
  }
  for (size_t i = 0; i < units_.size(); ++i) {
    const TgtUnit& unit = units_[i];
    const std::string where = "--mode logicalunit" + target + "--lun " + std::to_string(i + 1);
    control("--op new " + where + " -b '" + unit.file + "' --bstype " + unit.store + " --blocksize " +
            std::to_string(unit.blockSize));
    if (unit.thin) {
      control("--op update " + where + " --params thin_provisioning=1");
    }
    if (unit.readOnly) {
      control("--op update " + where + " --params readonly=1");
    }
  }
  if (!user_.empty()) {
    control("--op new --mode account --user " + user_ + " --password " + password_);
    control("--op bind --mode account" + target + "--user " + user_);
  }
  control("--op bind --mode target" + target + "-I ALL");
}

void TgtTarget::control(const std::string& words) const {
  const std::string line =
      "timeout 10 " + std::string(controller) + " -C " + std::to_string(controlPort_) + " --lld iscsi " + words;
  const ShellEnd end = runShell(line);
  if (end.status != 0) {
    throw std::runtime_error(line + ": " + end.out);
  }
}

void TgtTarget::stop() { ::kill(pid_, SIGSTOP); }

void TgtTarget::go() { ::kill(pid_, SIGCONT); }

void TgtTarget::stopWorkers() {
  for (const auto& entry : fs::directory_iterator("/proc/" + std::to_string(pid_) + "/task")) {
    const pid_t thread = std::stoi(entry.path().filename());
    if (thread == pid_) {
      continue;
    }
    int status = 0;
    if (ptrace(PTRACE_SEIZE, thread, 0, 0) != 0 || ptrace(PTRACE_INTERRUPT, thread, 0, 0) != 0 ||
        waitpid(thread, &status, __WALL) != thread) {
      throw std::runtime_error("cannot stop a thread of tgtd");
    }
    stopped_.push_back(thread);
  }
}

void TgtTarget::goWorkers() {
  for (const pid_t thread : stopped_) {
    ptrace(PTRACE_DETACH, thread, 0, 0);
  }
  stopped_.clear();
}

void TgtTarget::kill() {
  goWorkers();
  if (pid_ <= 0) {
    return;
  }
  // It ends at no gentler signal while it has a target.
  ::kill(pid_, SIGKILL);
  int status = 0;
  waitpid(pid_, &status, 0);
  pid_ = -1;
  std::error_code ignored;
  for (const char* suffix : {"", ".lock"}) {
    fs::remove("/var/run/tgtd/socket." + std::to_string(controlPort_) + suffix, ignored);
  }
}

}  // namespace corvane::tests
