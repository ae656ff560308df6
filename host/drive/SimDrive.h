#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "host/base/Random.h"
#include "host/drive/Drive.h"
#include "host/drive/DriveAddress.h"
#include "host/drive/SenseData.h"
#include "host/drive/SimErrors.h"
#include "host/drive/SimMedium.h"
#include "host/drive/SimSchedule.h"
#include "host/drive/SimStore.h"
#include "host/drive/SimTear.h"
#include "host/drive/SimZones.h"

namespace corvane::host {

/// What a simulated drive is like.
struct SimSettings {
  DriveGeometry geometry;
  uint32_t depth = 1024;       ///< most commands at once
  bool volatileCache = false;  ///< acknowledged writes wait in a cache that a power cut empties
  uint64_t cacheBlocks = 65'536;
  TearUnit tear = TearUnit::block;  ///< what a reset or power cut leaves done or undone as a whole
  bool hostManaged = false;         ///< of a drive with zones: each of them is written at its write pointer only
  SimErrorRates errors;
  uint64_t seed = 1;
};

/// An honest drive in memory that carries out every kind of command and answers out of order.
///
/// It carries a command out in the moment in which it answers it. That is a legal drive because its callers never
/// have conflicting commands outstanding. A reset or a power cut finds each outstanding command, by chance, not begun,
/// half done or done: a write, write-same or trim then has changed its first blocks, an atomic write some of its
/// segments. After a power cut a volatile cache is lost block by block, by chance.
///
/// Everything random follows from the seed and the sequence of calls.
class SimDrive : public Drive {
 public:
  explicit SimDrive(const SimSettings& settings);

  const DriveGeometry& geometry() const override { return settings_.geometry; }
  const DriveCapabilities& capabilities() const override { return capabilities_; }
  std::string description() const override;
  uint32_t maxOutstanding() const override { return settings_.depth; }

  void submit(const DriveCommand& command) override;
  bool poll(DriveCompletion& out, bool wait) override;
  void reset() override;
  void powerCycle() override;

  /// The medium itself: what an engineer with other tools would see, or change.
  SimMedium& medium() { return store_.medium(); }

 private:
  /// A command that waits for its answer, but was refused when it came.
  struct Refusal {
    uint64_t id = 0;
    Sense sense;
  };

  void answer(const DriveCommand& command, DriveCompletion& out);
  void failWrite(const DriveCommand& command, const SimAccident& accident);
  void carryOut(const DriveCommand& command, DriveCompletion& out);
  void carryOutPartly(const DriveCommand& command, TearUnit unit, Random& chance);
  void resetZones(const DriveCommand& command, Random* chance);
  void invalidate(const DriveCommand& command, Random* chance);
  std::optional<Sense> takeRefusal(uint64_t id);

  SimSettings settings_;
  DriveCapabilities capabilities_;
  SimStore store_;
  SimZones zones_;
  SimSchedule schedule_;
  SimErrors errors_;
  Random accidents_;  ///< what resets and power cuts leave
  std::vector<Refusal> refused_;
};

/// Opens `sim:[SIZE][,key=value]…`.
///
/// @param seed used unless the address names one
std::unique_ptr<Drive> openSimDrive(DriveAddress& address, uint64_t seed);

/// The keys of `sim:`, for `--help`.
std::string simDriveHelp();

}  // namespace corvane::host
