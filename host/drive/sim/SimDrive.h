#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "host/base/Random.h"
#include "host/drive/Drive.h"
#include "host/drive/DriveAddress.h"
#include "host/drive/SenseData.h"
#include "host/drive/sim/SimErrors.h"
#include "host/drive/sim/SimMedium.h"
#include "host/drive/sim/SimSchedule.h"
#include "host/drive/sim/SimStore.h"
#include "host/drive/sim/SimTear.h"
#include "host/drive/sim/SimZones.h"

namespace corvane::host {

/// What a simulated drive is like.
struct SimSettings {
  DriveGeometry geometry;
  uint32_t depth = 1024;       ///< most commands at once
  bool volatileCache = false;  ///< acknowledged writes wait in a cache that a power cut empties
  uint64_t cacheBlocks = 65'536;
  TearUnit tear = TearUnit::block;  ///< what a reset or power cut leaves done or undone as a whole
  bool hostManaged = false;         ///< of a drive with zones: each of them is written at its write pointer only
  AtomicSegments atomicSegments{};  ///< that it writes wholly or not at all; others it refuses
  SimErrorRates errors;
  uint64_t seed = 1;
};

/// A drive in memory that carries out every kind of command, answers out of order, and meets, when asked to, with
/// accidents that a good drive may have, but never breaks a promise. docs/drives/simulated.md says what is modelled and
/// what is not: no errors that stay, no wear, no read disturb, no heat, no time.
///
/// *Commands.* A command is refused, or moves a zone's write pointer, when it comes. It is carried out in the moment in
/// which it is answered; that is legal because callers never have conflicting commands outstanding.
///
/// *Reset.* It finds each outstanding command, by chance, not begun, done, or half done: any subset of its units took
/// place (see TearUnit), of an atomic write any subset of its segments. A write pointer that such a command moved stays
/// where it is.
///
/// *Power cut.* As a reset, and of what the volatile cache held each unit is lost or kept by chance. Atomic writes,
/// zone resets and invalidated blocks go through the cache; so does forced unit access.
///
/// *Errors.* See SimErrors.
///
/// Everything random follows from the seed and the sequence of calls. The order of answers, what resets leave, the
/// choices of the cache, the errors and the content of invalidated blocks are drawn from sequences of their own, so
/// that a key for one of them changes nothing of the order of answers.
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

/// Throws DriveAddressError where `openSimDrive` would, and makes nothing.
void checkSimAddress(DriveAddress& address);

/// The keys of `sim:`, for `--help`.
std::string simDriveHelp();

}  // namespace corvane::host
