#pragma once

#include <memory>
#include <optional>
#include <string>

#include "host/base/Random.h"
#include "host/drive/Drive.h"
#include "host/drive/DriveAddress.h"
#include "host/drive/SimCache.h"
#include "host/drive/SimMedium.h"
#include "host/drive/SimSchedule.h"

namespace corvane::host {

/// What a simulated drive is like.
struct SimSettings {
  DriveGeometry geometry;
  uint32_t depth = 1024;       ///< most commands at once
  bool volatileCache = false;  ///< acknowledged writes wait in a cache that a power cut empties
  uint64_t cacheBlocks = 65'536;
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

  void submit(const DriveCommand& command) override { schedule_.add(command); }
  bool poll(DriveCompletion& out, bool wait) override;
  void reset() override;
  void powerCycle() override;

  /// The medium itself: what an engineer with other tools would see, or change.
  SimMedium& medium() { return medium_; }

 private:
  void carryOut(const DriveCommand& command, DriveCompletion& out);
  void carryOutPartly(const DriveCommand& command);
  void change(const DriveCommand& command, uint32_t firstBlock, uint32_t blocks);
  void changeRun(const DriveCommand& command, uint32_t block, uint32_t blocks);
  void read(const DriveCommand& command);
  std::optional<uint64_t> firstDifference(const DriveCommand& command);

  SimSettings settings_;
  DriveCapabilities capabilities_;
  SimMedium medium_;
  std::unique_ptr<SimCache> cache_;  ///< null without a volatile cache
  SimSchedule schedule_;
  Random accidents_;  ///< what resets and power cuts leave
};

/// Opens `sim:[SIZE][,key=value]…`.
///
/// @param seed used unless the address names one
std::unique_ptr<Drive> openSimDrive(DriveAddress& address, uint64_t seed);

/// The keys of `sim:`, for `--help`.
std::string simDriveHelp();

}  // namespace corvane::host
