#pragma once

#include <array>
#include <memory>
#include <string>
#include <vector>

#include "host/base/AlignedMemory.h"
#include "host/drive/Drive.h"
#include "host/drive/DriveAddress.h"
#include "host/drive/Overwriting.h"
#include "host/drive/TransferPlan.h"
#include "host/drive/nvme/NvmeTraits.h"

namespace corvane::host {

/// An NVMe namespace as a drive.
///
/// What the command sets have no command for this class does: a write-same becomes a write of the repeated block, a
/// verify that Compare cannot do a read and a compare. Every segment of an atomic write is a Write command of its own.
/// A Compare that fails does not say where, so the blocks are read then to find the first one that differs; when they
/// read as they should, the miscompare stays, without an LBA.
///
/// Writes to a zone of a zoned namespace are sent one after the other, because a controller may carry out the commands
/// in its queues in any order.
///
/// A reset is one of the controller; all its namespaces feel it. Power cannot be cut.
class NvmeDrive : public Drive {
 public:
  /// Throws DriveError for a namespace that is not there or cannot be tested.
  ///
  /// @param device how it is called in messages
  /// @param depth  the most commands at once
  NvmeDrive(std::unique_ptr<NvmePassthrough> passthrough, const NvmeOptions& options, const std::string& device,
            uint32_t depth);
  ~NvmeDrive() override;

  const DriveGeometry& geometry() const override { return traits_.geometry; }
  const DriveCapabilities& capabilities() const override { return traits_.capabilities; }
  std::string description() const override;
  uint32_t maxOutstanding() const override { return static_cast<uint32_t>(slots_.size()); }

  void submit(const DriveCommand& command) override;
  bool poll(DriveCompletion& out, bool wait) override;
  void reset() override;
  /// Throws std::logic_error: the drive does not offer it.
  void powerCycle() override;
  void sendQueued() override { passthrough_->sendQueued(); }
  bool waitUpTo(uint64_t microseconds) override;

  /// With `NvmeOptions::vendorAdmin`, byte 0 of the request's command descriptor block, C0h to FFh, is the operation
  /// code of an admin command without data, and bytes 1 and up are its dwords 10 to 15.
  int sendVendorRequest(const uint8_t* block, uint32_t bytes) override;

 private:
  /// A command in work: the runs of its plan one after the other, each in one or more pieces.
  struct Slot {
    TransferPlan plan;
    uint32_t run = 0;
    uint64_t done = 0;       ///< blocks of the run
    uint32_t piece = 0;      ///< blocks of the command that is at the drive
    bool locating = false;   ///< reads what a Compare found different
    AlignedMemory found;     ///< what was read then
    AlignedMemory data;      ///< of the piece, where metadata are separate
    AlignedMemory metadata;  ///< likewise
    alignas(8) std::array<uint8_t, nvmeDatasetRangeBytes> range{};
  };

  bool writesInZone(const DriveCommand& command) const;
  bool isWholeZones(const DriveCommand& command) const;
  TransferLimits limitsOf(CommandKind kind) const;
  uint64_t zoneOf(uint32_t slot) const;
  /// Starts the slot's command, unless an earlier write to its zone is under way.
  void begin(uint32_t index);
  /// Lets the next write of the zone begin.
  void leaveZone(uint32_t index);
  void sendPiece(uint32_t index);
  NvmeCommand commandOf(Slot& slot, const TransferPlan::Run& run);
  NvmeBlocks blocksOf(const Slot& slot, const TransferPlan::Run& run) const;
  uint8_t* memoryOf(Slot& slot, const TransferPlan::Run& run) const;
  /// Gives the command its data, and its metadata where they are separate.
  void attachData(Slot& slot, const TransferPlan::Run& run, NvmeCommand& command, bool toDrive) const;
  void joinMetadata(Slot& slot, const TransferPlan::Run& run) const;
  /// Takes in how a piece ended; true when the command has ended and `out` says how.
  bool advance(const NvmeReply& reply, DriveCompletion& out);
  void judgeFailure(const Slot& slot, int32_t result, DriveCompletion& out) const;
  void judgeDifference(Slot& slot, DriveCompletion& out) const;
  void release(uint32_t index);
  void answerAtOnce(const DriveCommand& command, DriveCompletion completion);
  void drain();

  std::string device_;
  NvmeIdentity identity_;
  NvmeTraits traits_;
  bool vendorAdmin_;
  std::vector<Slot> slots_;
  std::vector<uint32_t> freeSlots_;
  std::vector<uint32_t> zoneWrites_;    ///< slots that write to zones, in the order in which they came
  std::vector<DriveCompletion> ready_;  ///< answers that needed no command
  uint32_t atDrive_ = 0;                ///< commands whose ends are still to come
  // The last member, so that it is gone before the memory that its commands point to.
  std::unique_ptr<NvmePassthrough> passthrough_;
};

/// Opens `nvme:/dev/nvme0n1[,key=value]…`.
std::unique_ptr<Drive> openNvmeDrive(DriveAddress& address, uint32_t maxOutstanding, Overwriting overwriting);

/// Throws DriveAddressError where `openNvmeDrive` would, and touches nothing.
void checkNvmeAddress(DriveAddress& address);

/// The keys of `nvme:`, for `--help`.
std::string nvmeDriveHelp();

}  // namespace corvane::host
