#pragma once

#include <algorithm>
#include <cstdint>

#include "host/base/AlignedMemory.h"
#include "host/drive/Drive.h"

namespace corvane::host {

/// What one operation of a transport can do.
struct TransferLimits {
  uint64_t mostBlocks = 0;            ///< of one operation; 0: any number
  uint64_t memoryAlignment = 1;       ///< of the address of its data, bytes; a power of two
  bool splitsAtomicSegments = false;  ///< each segment of an atomic write is an operation of its own
  bool repeatsBlock = false;          ///< a write-same is sent one block and repeats it itself
  bool comparesData = false;          ///< a verify is sent the data and compares them itself
};

/// How a command is carried out as one or more operations on runs of neighbouring blocks, and from or to which memory.
///
/// What a transport cannot do is done here: a step between blocks becomes a run for each block (a read fetches the
/// blocks between along), a write-same becomes a write of the repeated block, a verify a read and a compare. Data go
/// straight from and to the command's memory; they are copied once, through memory of the plan's own, where the
/// transport wants other memory, where end-to-end bytes are to be left out and where a read leaves blocks out.
///
/// Meant to be used for one command after the other: the plan's own memory grows to the longest and stays.
class TransferPlan {
 public:
  enum class Moves : uint8_t { nothing, toDrive, fromDrive };

  struct Run {
    uint64_t lba = 0;
    uint64_t blocks = 0;
    uint8_t* data = nullptr;  ///< null when nothing is moved
    uint64_t bytes = 0;       ///< that are moved; one block's for a write-same that the drive repeats
  };

  /// @param command fits the geometry, as `refuse` of CommandCheck.h judges; its memory stays with the plan
  void make(const DriveCommand& command, const DriveGeometry& geometry, const TransferLimits& limits);

  const DriveCommand& command() const { return command_; }
  Moves moves() const { return moves_; }
  /// At least one.
  uint32_t runs() const { return runs_; }
  /// @param index below `runs()`
  Run run(uint32_t index) const {
    const uint64_t blocks = std::min(runBlocks_, allBlocks_ - index * runBlocks_);
    if (moves_ == Moves::nothing) {
      return {.lba = command_.lba + index * runLbas_, .blocks = blocks};
    }
    return {.lba = command_.lba + index * runLbas_,
            .blocks = blocks,
            .data = sameMemory_ ? memory_ : memory_ + index * runBlocks_ * sectorBytes_,
            .bytes = sameMemory_ && limits_.repeatsBlock ? sectorBytes_ : blocks * sectorBytes_};
  }

  /// Completes a command whose runs all ended well: a read's data come to the command's memory, a verify is judged.
  /// Sets everything in `out` but tag and id.
  void finish(DriveCompletion& out) const;

 private:
  void planWrite();
  void planWriteSame();
  void planRead();
  void gather() const;
  void judgeVerify(DriveCompletion& out) const;
  /// In runs of at most `blocks`.
  void cut(uint64_t blocks);
  bool movable() const;
  uint64_t unitBytes() const { return sectorBytes_ + command_.trailerBytes; }

  DriveCommand command_;
  TransferLimits limits_;
  uint64_t sectorBytes_ = 0;
  Moves moves_ = Moves::nothing;
  uint32_t runs_ = 1;
  uint64_t allBlocks_ = 0;  ///< of all runs together
  uint64_t runBlocks_ = 0;  ///< of each run but the last
  uint64_t runLbas_ = 0;    ///< from one run's first LBA to the next one's
  uint8_t* memory_ = nullptr;
  bool sameMemory_ = false;  ///< every run moves the same bytes
  AlignedMemory own_;
};

}  // namespace corvane::host
