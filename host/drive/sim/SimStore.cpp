#include "host/drive/sim/SimStore.h"

#include <algorithm>
#include <cstring>

namespace corvane::host {
namespace {

constexpr uint64_t noiseStream = 0x2015E;  ///< keeps the random sequences of a seed apart

/// An atomic write does, so that a power cut cannot tear one that waits in the cache.
bool goesThrough(const DriveCommand& command) {
  return command.forceUnitAccess || command.kind == CommandKind::writeAtomic;
}

}  // namespace

SimStore::SimStore(const DriveGeometry& geometry, SimMedium::Unwritten unwritten, uint64_t cacheBlocks, TearUnit unit,
                   uint64_t seed)
    : geometry_(geometry),
      medium_(geometry.sectorBytes(), unwritten),
      cache_(cacheBlocks != 0 ? std::make_unique<SimCache>(medium_, geometry, cacheBlocks, unit, seed) : nullptr),
      noise_(seed ^ noiseStream),
      sector_(geometry.sectorBytes()),
      zeros_(geometry.sectorBytes()) {}

void SimStore::change(const DriveCommand& command, uint32_t firstBlock, uint32_t blocks) {
  const bool oneRun = command.lbaStep == 1 && (command.kind == CommandKind::trim ||
                                               (command.kind != CommandKind::writeSame && command.trailerBytes == 0));
  if (oneRun) {
    changeRun(command, firstBlock, blocks);
    return;
  }
  for (uint32_t i = 0; i < blocks; ++i) {
    changeRun(command, firstBlock + i, 1);
  }
}

void SimStore::changeRun(const DriveCommand& command, uint32_t block, uint32_t blocks) {
  if (blocks == 0) {
    return;
  }
  const uint64_t lba = command.lbaOf(block);
  beforeChange(command, lba, blocks);
  if (command.kind == CommandKind::trim) {
    medium_.zero(lba, blocks);
  } else {
    medium_.write(lba, blocks, newContent(command, block));
  }
  afterChange(command, lba, blocks);
}

void SimStore::changeSome(const DriveCommand& command, uint32_t firstBlock, TearUnit unit, Random& chance) {
  if (command.kind == CommandKind::writeAtomic) {
    changeSegments(command, chance);
    return;
  }
  const uint64_t group = blocksPerUnit(unit, geometry_);
  uint64_t prepared = 0;  // all LBAs below it
  SimTear torn(unit, geometry_, chance);
  for (uint32_t i = firstBlock; i < command.blocks; ++i) {
    const uint64_t lba = command.lbaOf(i);
    if (lba >= prepared) {
      prepared = std::min((lba / group + 1) * group, command.endLba());
      beforeChange(command, lba, prepared - lba);
    }
    std::memcpy(sector_.data(), medium_.sector(lba), sector_.size());
    if (torn.mix(lba, newContent(command, i), sector_.data())) {
      medium_.write(lba, 1, sector_.data());
      afterChange(command, lba, 1);
    }
  }
}

void SimStore::changeSegments(const DriveCommand& command, Random& chance) {
  const uint32_t segment = command.atomicBound == 0 ? command.blocks : command.atomicBound;
  uint32_t length = 0;
  for (uint32_t first = 0; first < command.blocks; first += length) {
    length = std::min(segment, command.blocks - first);
    if (chance.below(2) == 0) {
      change(command, first, length);
    }
  }
}

void SimStore::beforeChange(const DriveCommand& command, uint64_t lba, uint64_t blocks) {
  if (cache_ != nullptr && !goesThrough(command)) {
    cache_->beforeChange(lba, blocks);
  }
}

void SimStore::afterChange(const DriveCommand& command, uint64_t lba, uint64_t blocks) {
  if (goesThrough(command)) {
    makeSafe(lba, blocks);
  }
}

const uint8_t* SimStore::newContent(const DriveCommand& command, uint32_t block) const {
  if (command.kind == CommandKind::trim) {
    return zeros_.data();
  }
  return command.data + (command.kind == CommandKind::writeSame ? 0 : uint64_t{block} * command.unitBytes(geometry_));
}

void SimStore::read(const DriveCommand& command) {
  if (command.lbaStep == 1 && command.trailerBytes == 0) {
    medium_.read(command.lba, command.blocks, command.data);
    return;
  }
  const uint64_t unit = command.unitBytes(geometry_);
  for (uint32_t i = 0; i < command.blocks; ++i) {
    uint8_t* block = command.data + i * unit;
    medium_.read(command.lbaOf(i), 1, block);
    std::memset(block + geometry_.sectorBytes(), 0, command.trailerBytes);
  }
}

std::optional<uint64_t> SimStore::firstDifference(const DriveCommand& command) {
  const uint64_t unit = command.unitBytes(geometry_);
  for (uint32_t i = 0; i < command.blocks; ++i) {
    const uint64_t lba = command.lbaOf(i);
    if (std::memcmp(medium_.sector(lba), command.data + i * unit, geometry_.sectorBytes()) != 0) {
      return lba;
    }
  }
  return std::nullopt;
}

void SimStore::erase(uint64_t lba, uint64_t blocks) {
  medium_.zero(lba, blocks);
  makeSafe(lba, blocks);
}

void SimStore::invalidate(uint64_t lba) {
  for (size_t i = 0; i < sector_.size(); i += sizeof(uint64_t)) {
    const uint64_t word = noise_.next();
    std::memcpy(&sector_[i], &word, std::min(sizeof(word), sector_.size() - i));
  }
  sector_[0] = SimMedium::nobodysMark;
  medium_.write(lba, 1, sector_.data());
  makeSafe(lba, 1);
}

void SimStore::makeSafe(uint64_t lba, uint64_t blocks) {
  if (cache_ != nullptr) {
    cache_->writtenThrough(lba, blocks);
  }
}

void SimStore::flush() {
  if (cache_ != nullptr) {
    cache_->flush();
  }
}

void SimStore::losePower(Random& random) {
  if (cache_ != nullptr) {
    cache_->lose(random);
  }
}

}  // namespace corvane::host
