#pragma once

#include <cstdint>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "host/base/Random.h"
#include "host/drive/Drive.h"
#include "host/fault/FaultClass.h"
#include "host/fault/RecentCommands.h"
#include "host/fault/Sectors.h"

namespace corvane::host {

/// Blocks around a struck command whose content a fault may want to know or change.
struct Neighbourhood {
  uint64_t first = 0;
  uint64_t end = 0;  ///< excluded
};

/// The blocks that a fault of this class looks at when it strikes this command: at least the command's own.
Neighbourhood neighbourhoodOf(FaultClass what, const DriveCommand& command, const DriveGeometry& geometry);

/// Everything that decides what a fault leaves.
struct DamageInput {
  FaultClass what;
  const DriveCommand& command;
  const DriveGeometry& geometry;
  const Sectors& before;                  ///< the neighbourhood ahead of the command
  const Sectors& after;                   ///< what an honest drive leaves there
  const std::vector<uint8_t>& otherData;  ///< a sector of another command; empty: none was seen
  const RecentCommands& recent;           ///< the drive's latest commands, this one not among them
};

/// What a fault leaves instead of `DamageInput::after`.
struct Damage {
  Sectors content;                ///< of the neighbourhood
  std::set<uint64_t> unreadable;  ///< blocks that cannot be read at all
  std::set<uint64_t> kept;        ///< of a torn segment: blocks that have the new data
  std::string note;
};

/// Works out what a fault of the medium leaves: a pure function of its input and the random source.
///
/// @return nothing when this command gives the fault no opportunity
std::optional<Damage> damageOf(const DamageInput& input, Random& random);

}  // namespace corvane::host
