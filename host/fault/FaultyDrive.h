#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "host/base/AlignedMemory.h"
#include "host/base/Random.h"
#include "host/drive/ForwardingDrive.h"
#include "host/fault/Alterations.h"
#include "host/fault/FaultExchange.h"
#include "host/fault/FaultLedger.h"
#include "host/fault/FaultSpec.h"
#include "host/fault/FaultTrigger.h"
#include "host/fault/LiveBlocks.h"
#include "host/fault/RecentCommands.h"
#include "host/fault/Sectors.h"

namespace corvane::host {

/// Any drive, with one kind of fault in front of it. Put several around each other for several faults.
///
/// The drive beneath carries out every command honestly, so pristine data are always there to compare with. What the
/// faulty drive shows instead is a list of altered blocks: they go into what reads return and into what verifies
/// judge, until a later command replaces the block. A command that is struck is surrounded by reads of its
/// neighbourhood, so that the ledger can say what was there and what is there now; an alteration that would make no
/// difference is none, and the next command gets its turn.
///
/// Under a command that failed, or that a reset took away, an alteration ends: nobody can say then what is there.
///
/// All randomness follows from the seed and the order of commands. Allocates where it strikes and remembers the
/// blocks that were written: a tool for trying out tests, not for measuring speed.
class FaultyDrive : public ForwardingDrive {
 public:
  /// @param ledger   outlives the object; the drive's number is in it
  /// @param exchange for cross-talk; null or outlives the object
  FaultyDrive(std::unique_ptr<Drive> drive, const FaultSpec& spec, uint64_t seed, FaultLedger& ledger,
              FaultExchange* exchange = nullptr);

  std::string description() const override;

  void submit(const DriveCommand& command) override;
  bool poll(DriveCompletion& out, bool wait) override;
  void reset() override;
  void powerCycle() override;

 private:
  enum class Phase : uint8_t {
    idle,
    readingBefore,     ///< what is there ahead of the command
    carriedOut,        ///< the command itself
    readingAfter,      ///< what an honest drive has made of it
    readingElsewhere,  ///< the blocks that a misdirected read returns
    judging,           ///< a verify over altered blocks: they are read and compared here
  };
  struct Slot {
    Phase phase = Phase::idle;
    DriveCommand command;
    uint64_t innerId = 0;
    uint64_t number = 0;      ///< the drive's count of commands
    bool impossible = false;  ///< the drive refuses it: it changes nothing, and nothing happens to it
    bool struck = false;
    std::set<uint64_t> recognisable;  ///< blocks whose old content somebody recognises
    bool wantsBefore = false;
    uint64_t elsewhere = 0;  ///< where a misdirected read goes
    Sectors before;
    Sectors after;
    AlignedMemory memory;        ///< of the reads of our own
    DriveCompletion completion;  ///< the command's own, while something is read behind it
  };
  /// Old content that the next read of a block will get.
  struct Prepared {
    Injection injection;  ///< not entered before something is handed out
    std::optional<FaultLedger::Id> id;
    uint64_t lastCommand = 0;
    size_t blocksLeft = 0;
  };
  /// A read that handed out altered blocks.
  struct Delivery {
    FaultLedger::Id injection = 0;
    uint64_t lba = 0;
    uint32_t blocks = 0;
    bool visible = false;
    bool partly = false;  ///< see Injection::visiblePartly
  };

  // The course of a command.
  Slot& slotOf(uint32_t tag);
  void begin(Slot& slot);
  void pass(Slot& slot);
  void startRead(Slot& slot, Phase phase, uint64_t lba, uint64_t blocks, uint32_t step);
  void readAround(Slot& slot, Phase phase);
  Sectors takeAround(Slot& slot) const;
  /// @return whether the command is done; its completion is in `out` then
  bool goOn(Slot& slot, DriveCompletion& out);
  bool commandDone(Slot& slot, DriveCompletion& out);
  void dropOutstanding();

  // What the ends of commands mean.
  void finishChange(Slot& slot, const DriveCompletion& out);
  void finishRead(Slot& slot, DriveCompletion& out);
  void finishVerify(Slot& slot, DriveCompletion& out);
  void judge(Slot& slot, DriveCompletion& out);
  bool isRecognisable(const DriveCommand& command, uint64_t lba) const;
  void remember(const DriveCommand& change);
  void endAlterations(const DriveCommand& command, uint64_t Injection::*ending);

  // Strikes.
  bool strikes(const Slot& slot);
  /// Whether an earlier strike has to come to its end before there can be another.
  bool engaged() const { return lyingVerifies_ || prepared_ || liedFlush_; }
  void strike(Slot& slot, DriveCompletion& out);
  void strikeMedium(Slot& slot, DriveCompletion& out);
  void prepareOldContent(Slot& slot);
  void dropPrepared();
  void flipReadBit(Slot& slot);
  void replaceRead(Slot& slot);
  void raiseFalseAlarm(Slot& slot, DriveCompletion& out);
  void publishForOthers(const DriveCommand& command);
  void rememberUnflushed(const Slot& slot);
  void losePower();

  // The ledger.
  /// Enters it, and shows its altered blocks from now on.
  FaultLedger::Id enter(Injection injection);
  Injection injectionOf(const Slot& slot) const;
  void noteDelivery(const Slot& slot, uint64_t lba, FaultLedger::Id id);
  void notePreRead(const DriveCommand& atomicWrite);
  void enterRead(const Slot& slot, std::vector<AlteredBlock> altered, std::string note);
  bool mustBeNoticed(const DriveCommand& look, uint64_t lba, const Injection& injection) const;
  /// Puts the altered content of a block, if it has one, into `sector`; returns false when it cannot be read.
  bool show(const Slot& slot, uint64_t lba, uint8_t* sector);

  const FaultSpec spec_;
  FaultLedger& ledger_;
  FaultExchange* const exchange_;
  FaultTrigger trigger_;
  Random random_;
  Alterations alterations_;
  LiveBlocks live_;
  RecentCommands recent_;
  std::vector<Slot> slots_;  ///< by tag
  std::vector<Delivery> deliveries_;
  uint64_t commands_ = 0;
  uint64_t nextInnerId_ = 1;
  std::optional<Prepared> prepared_;
  std::optional<FaultLedger::Id> lyingVerifies_;        ///< every verify is good from now on
  std::optional<Injection> liedFlush_;                  ///< entered when the power is cut
  std::vector<uint8_t> otherData_;                      ///< a sector of the latest write, or of another drive
  std::set<uint64_t> tornNew_;                          ///< blocks of a torn segment that still have its new data
  std::set<uint64_t> recognisedOld_;                    ///< struck blocks that have old data which somebody recognises
  std::map<uint64_t, std::vector<uint8_t>> unflushed_;  ///< what a cut brings back
};

}  // namespace corvane::host
