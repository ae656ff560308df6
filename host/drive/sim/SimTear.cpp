#include "host/drive/sim/SimTear.h"

#include <algorithm>
#include <cstring>

namespace corvane::host {
namespace {

constexpr uint32_t pieceBytes = 512;
constexpr uint32_t groupBytes = 4096;

}  // namespace

uint64_t blocksPerUnit(TearUnit unit, const DriveGeometry& geometry) {
  return unit == TearUnit::fourKiB ? std::max(groupBytes / geometry.blockSize, uint32_t{1}) : 1;
}

uint32_t SimTear::piecesOf(TearUnit unit, const DriveGeometry& geometry) {
  return unit == TearUnit::sector ? std::max(geometry.blockSize / pieceBytes, uint32_t{1}) : 1;
}

bool SimTear::decide(uint64_t lba) {
  const uint64_t group = lba / group_;
  // A group of one has pieces, each of which has its own fate.
  if (group_ == 1 || group != lastGroup_) {
    lastGroup_ = group;
    lastFate_ = chance_.below(2) == 0;
  }
  return lastFate_;
}

bool SimTear::mix(uint64_t lba, const uint8_t* from, uint8_t* onto) {
  bool any = false;
  for (uint32_t piece = 0; piece < pieces_; ++piece) {
    const uint32_t begin = piece * pieceBytes;
    const uint32_t end = piece + 1 == pieces_ ? geometry_.sectorBytes() : begin + pieceBytes;
    if (decide(lba)) {
      std::memcpy(onto + begin, from + begin, end - begin);
      any = true;
    }
  }
  return any;
}

}  // namespace corvane::host
