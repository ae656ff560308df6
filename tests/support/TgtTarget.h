#pragma once

#include <sys/types.h>

#include <cstdint>
#include <string>
#include <vector>

#include "tests/support/TempFolder.h"

namespace corvane::tests {

/// A logical unit as the target is told to make it.
struct TgtUnit {
  std::string file;  ///< what backs it; has to exist
  uint32_t blockSize = 512;
  std::string store = "rdwr";
  bool thin = true;  ///< takes UNMAP
  bool readOnly = false;
};

/// An iSCSI target of the test's own, on a free port of 127.0.0.1. It ends with the object, and with the test's process
/// however that ends.
///
/// Every function throws std::runtime_error when the target does not do what it is asked to.
class TgtTarget {
 public:
  /// Why there can be no target here; empty when there can.
  static std::string missing();

  explicit TgtTarget(std::vector<TgtUnit> units, std::string user = "", std::string password = "");
  ~TgtTarget();
  TgtTarget(const TgtTarget&) = delete;
  TgtTarget& operator=(const TgtTarget&) = delete;

  /// "iscsi://127.0.0.1:PORT/IQN/LUN"; the units' numbers are 1, 2, …
  std::string address(uint32_t lun = 1) const;
  const std::string& name() const { return name_; }
  uint16_t port() const { return port_; }

  /// Holds every thread of it still, or lets them go on.
  void stop();
  void go();
  /// Holds the threads still that read and write the files; the one that speaks to initiators goes on. The thread that
  /// stops them has to let them go.
  void stopWorkers();
  void goWorkers();
  void kill();
  /// A new process with the same port and units. It ends with the thread that calls this.
  void start();
  void restart() {
    kill();
    start();
  }

 private:
  void spawn();
  void awaitPort() const;
  void configure() const;
  void control(const std::string& words) const;

  const std::vector<TgtUnit> units_;
  const std::string user_;
  const std::string password_;
  const std::string name_ = "iqn.2026-01.corvane.test:disk";
  uint16_t port_ = 0;
  int controlPort_ = 0;
  TempFolder folder_;  ///< for what it says
  pid_t pid_ = -1;
  std::vector<pid_t> stopped_;
};

}  // namespace corvane::tests
