#pragma once

#include <exception>
#include <memory>
#include <string>
#include <vector>

#include "host/base/AlignedMemory.h"
#include "host/drive/Drive.h"
#include "host/drive/TransferPlan.h"
#include "host/drive/scsi/ScsiCdb.h"
#include "host/drive/scsi/ScsiDriveSettings.h"
#include "host/drive/scsi/ScsiTransport.h"
#include "host/drive/scsi/ScsiUnit.h"

namespace corvane::host {

/// A SCSI unit behind a transport, as a drive.
///
/// A command becomes one request, or several one after the other where the unit takes fewer blocks at once, where
/// blocks are left out and where an atomic write has several segments. The first request that fails ends the command
/// with its answer; nothing of an answer is changed but what sense data announce beyond what came, so an LBA in them is
/// the unit's own. Busy, task set full, reservation conflict and unit attention go up like any other answer. Only a
/// miscompare of a verify that does not say where it is gets the LBA of the first block that differs, which is found by
/// a read.
///
/// A reset is a LOGICAL UNIT RESET, after which the unit attentions that it leaves are taken away. The transport may
/// have made its connection again for it, and then another unit may be there: a reset throws DriveError unless it is
/// the same.
class ScsiDrive : public Drive {
 public:
  /// Asks the unit what it is and can, and changes nothing on its medium. Throws as `makeScsiDrive`.
  ScsiDrive(std::unique_ptr<ScsiTransport> transport, const ScsiDriveSettings& settings, uint32_t maxOutstanding);
  ~ScsiDrive() override;
  ScsiDrive(const ScsiDrive&) = delete;
  ScsiDrive& operator=(const ScsiDrive&) = delete;

  const DriveGeometry& geometry() const override { return unit_.geometry; }
  const DriveCapabilities& capabilities() const override { return capabilities_; }
  std::string description() const override;
  uint32_t maxOutstanding() const override { return static_cast<uint32_t>(slots_.size()); }

  void submit(const DriveCommand& command) override;
  bool poll(DriveCompletion& out, bool wait) override;
  bool waitUpTo(uint64_t microseconds) override;
  void reset() override;
  /// Not offered; throws std::logic_error.
  void powerCycle() override;

  /// The block: its length in bytes 0 to 3 (little-endian), the length of a command block in byte 6 (6 to 16), the
  /// command block from byte 24. It is sent without data.
  ///
  /// @return 0 for good status, 5 for any other, 22 for a block that is not of this form
  int sendVendorRequest(const uint8_t* block, uint32_t bytes) override;

 private:
  enum class Operation : uint8_t { read, write, writeAtomic, writeSame, verify, trim, flush };

  /// A command in work: the runs of its plan, one after the other.
  struct Slot {
    TransferPlan plan;
    Operation operation = Operation::read;
    uint32_t run = 0;        ///< the one in work
    uint64_t brought = 0;    ///< bytes that the runs of a read brought
    uint64_t trimmed = 0;    ///< blocks of the run that a trim is through with
    TrimPiece piece;         ///< of a trim, in work
    bool flushing = false;   ///< all is moved, and a flush makes it safe
    bool recovered = false;  ///< a run ended with recovered error, and `answer` is that
    bool locating = false;   ///< the run in work is read for the block of the miscompare that `answer` is
    ScsiReply answer;
    UnmapParameterList list;  ///< of the piece in work
    AlignedMemory found;      ///< what the drive holds, to be compared with a run's data
  };

  Operation operationOf(CommandKind kind) const;
  TransferLimits limitsOf(Operation operation) const;
  bool isTooLongForOneSegment(const DriveCommand& command) const;
  void begin(uint32_t index, const DriveCommand& command);
  void send(uint32_t index);
  void fillTransfer(const Slot& slot, ScsiRequest& request) const;
  void fillLocatingRead(Slot& slot, ScsiRequest& request) const;
  void fillTrim(Slot& slot, ScsiRequest& request);
  /// Goes on to the next request of the command; false when there is none left.
  bool step(Slot& slot) const;
  bool needsFlush(const Slot& slot) const;
  bool take(ScsiReply& reply, bool wait);
  bool advance(const ScsiReply& reply, DriveCompletion& out);
  void finish(const Slot& slot, DriveCompletion& out) const;
  void finishShort(const Slot& slot, DriveCompletion& out) const;
  void finishLocating(const Slot& slot, const ScsiReply& reply, DriveCompletion& out) const;
  void answerAtOnce(const DriveCommand& command, DriveCompletion completion);
  void forgetEverything();
  int sendAlone(const ScsiRequest& request);
  /// Waits until the transport takes one more request.
  void makePlace();
  /// Waits for the answer of a slot and keeps those that come before it; false when there is none.
  bool keepUntil(uint32_t slot, ScsiReply& reply);

  std::unique_ptr<ScsiTransport> transport_;
  uint32_t readySeconds_;
  ScsiUnit unit_;
  DriveCapabilities capabilities_;
  AlignedMemory zeros_;
  std::vector<Slot> slots_;
  std::vector<uint32_t> freeSlots_;
  std::vector<DriveCompletion> ready_;  ///< answers that needed no request
  std::vector<ScsiReply> kept_;         ///< that came while a vendor request was waited for
  uint32_t running_ = 0;                ///< requests that the transport has
  std::exception_ptr lost_;             ///< what a vendor request met, for the next submit or poll
};

/// Opens a SCSI unit as a drive.
///
/// @param maxOutstanding the most commands that the caller will have outstanding; the drive takes fewer where the
///                       transport does
///
/// Throws DriveError for a unit that is no disk, is not ready, cannot be written or lacks what the settings demand; the
/// text begins with the transport's description. Nothing is written to its medium.
std::unique_ptr<Drive> makeScsiDrive(std::unique_ptr<ScsiTransport> transport, const ScsiDriveSettings& settings,
                                     uint32_t maxOutstanding);

}  // namespace corvane::host
