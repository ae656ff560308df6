#pragma once

#include <cstdint>

#include "host/base/Random.h"
#include "host/drive/Drive.h"

namespace corvane::host {

/// What a drive without power writes wholly or not at all.
enum class TearUnit : uint8_t {
  block,   ///< each logical block
  sector,  ///< each 512 bytes, so that a larger block can be torn inside; protection bytes go with the last ones
  fourKiB  ///< the blocks of each aligned 4 KiB together
};

/// The blocks of one unit: 1 unless several blocks share their fate.
uint64_t blocksPerUnit(TearUnit unit, const DriveGeometry& geometry);

/// One torn change: decides by chance which units of it took place.
class SimTear {
 public:
  SimTear(TearUnit unit, const DriveGeometry& geometry, Random& chance)
      : geometry_(geometry),
        chance_(chance),
        pieces_(piecesOf(unit, geometry)),
        group_(blocksPerUnit(unit, geometry)) {}

  /// Copies what took place of a sector; nothing, all, or some pieces.
  ///
  /// Call it in the order of ascending LBAs, so that blocks of a unit follow each other.
  ///
  /// @param from, onto a whole sector each
  /// @return whether anything was copied
  bool mix(uint64_t lba, const uint8_t* from, uint8_t* onto);

 private:
  static uint32_t piecesOf(TearUnit unit, const DriveGeometry& geometry);
  bool decide(uint64_t lba);

  const DriveGeometry& geometry_;
  Random& chance_;
  uint32_t pieces_;  ///< of a block
  uint64_t group_;   ///< blocks of a unit
  uint64_t lastGroup_ = ~uint64_t{0};
  bool lastFate_ = false;
};

}  // namespace corvane::host
