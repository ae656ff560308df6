#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <vector>

#include "host/base/Ring.h"
#include "host/drive/Drive.h"
#include "host/run/BlockExpectations.h"
#include "host/run/CheckCounters.h"
#include "host/run/CommandEnding.h"

namespace corvane::host {

/// Told what each block of each judged read or verify was worth, before the agent sees the completion.
using WorthListener = std::function<void(const DriveCommand& command, uint64_t lba, BlockWorth worth)>;

/// What the account has to know of a test: the options by which the agent decides what it reads back.
struct CheckRules {
  bool skipCommands = false;
  bool slideReads = false;
  bool spliceDetection = false;
  bool randomSelection = true;
  uint32_t minQueueSize = 0;
  uint32_t maxQueueSize = 0;
  bool readsSense = true;       ///< whether the agent looks at sense data
  uint64_t longestSpan = 0;     ///< of a command or zone, blocks from first to last; 0: nobody knows. For speed only
  WorthListener listener = {};  ///< null: nobody wants to know
};

/// Keeps account of what a compare was worth: which of the blocks that reads and verifies bring were checked, and
/// against how many contents that would all have been accepted.
///
/// The agent does not say it, but follows fixed rules: the write that finished first is read back first, a command
/// that failed leaves a content that is not judged, and so on. The account applies the same rules to the same commands.
/// When the commands do not follow them, as with another agent, every later block counts as `Uncheckable::untold`.
///
/// It is told of each thing in the order in which the agent sees them. One thread; allocates only while more is awaited
/// than ever before, and once when a test has its first command that is not plain.
class CheckAccount {
 public:
  /// @param tags     commands have tags below this
  /// @param counters outlives the object
  CheckAccount(CheckRules rules, uint32_t tags, CheckCounters& counters);

  /// How a command came about.
  struct Origin {
    bool chosenRange = false;   ///< its range is the one that the LBA agent published for this step
    bool mayBePreRead = false;  ///< of a read: it may be the read ahead of an atomic write
  };

  /// The agent issued a command.
  ///
  /// @return whether it is a read ahead of an atomic write
  bool issued(const DriveCommand& command, Origin origin);

  /// The agent will be told next that a command ended.
  ///
  /// @param dataDelivered whether a read's data are passed on
  void completed(const DriveCommand& command, const DriveCompletion& completion, bool dataDelivered);

  /// Asks the processor for what a write at these LBAs would touch.
  void prefetchForWrite(uint64_t lba, uint32_t blocks) const {
    if (blocks != 0 && !plain_) {
      expectations_.prefetchPlace(spanOf(lba, blocks));
    }
  }

  /// Whether nothing was told yet for which it has to remember single blocks.
  bool plain() const { return plain_; }

  /// A reset or power cut took every outstanding command away.
  void allLost();

  /// Zones were reset while no command over them, or over the block behind them, was outstanding.
  void zonesReset(uint64_t first, uint64_t end);
  /// The old content of blocks that no outstanding command touches must never be read again.
  void invalidated(uint64_t first, uint64_t end);

 private:
  static constexpr uint32_t noTag = UINT32_MAX;

  /// A write that waits for its read-back, or a read that is to be repeated.
  struct ReadBack {
    uint64_t lba = 0;
    uint32_t blocks = 0;
    bool probe = false;     ///< only to see whether the blocks can be read
    bool repeated = false;  ///< a probe that was aborted once
  };
  /// An outstanding command.
  struct Outstanding {
    bool live = false;
    CommandKind kind = CommandKind::read;
    BlockSpan span;
    uint32_t blocks = 0;
    uint64_t issued = 0;          ///< in the account's time
    bool wantsReadBack = false;   ///< a write
    uint32_t linkedRead = noTag;  ///< the tag of the read-back that did not wait for the write's end
    bool preRead = false;
    bool claimed = false;   ///< a pre-read: its atomic write has been issued
    bool probe = false;     ///< of a read that is none, as of the read-back that it is
    bool repeated = false;  ///< likewise
  };
  /// A read that was taken for a pre-read but could have been the read-back that stood next.
  struct Doubt {
    BlockSpan preRead;
    uint64_t issued = 0;
    BlockSpan readBack;
  };
  enum class Choice : uint8_t { write, read, either };

  BlockSpan spanOf(uint64_t lba, uint32_t blocks) const {
    const uint32_t step = rules_.skipCommands ? 2 : 1;
    return {.first = lba, .end = lba + uint64_t{blocks} * step, .step = step};
  }
  Outstanding& begin(const DriveCommand& command);
  Choice nextChoice();
  void loseTrack();

  // While everything is plain: each returns false and changes nothing when this is not.
  bool issuedPlainly(const DriveCommand& command, Origin origin);
  bool completedPlainly(const DriveCommand& command, const DriveCompletion& completion, bool dataDelivered);
  /// What is expected from now on stands in `expectations_`.
  void leavePlain();

  void issueWrite(Outstanding& own, bool certain);
  void issueAtomicWrite(Outstanding& own, bool chosenRange);
  bool usePreRead(const Outstanding& own);
  bool isPreRead(const Outstanding& own, Choice choice);
  bool issueRead(uint32_t tag, bool mayBePreRead, Choice choice);
  bool issueReadBack(uint32_t tag);
  /// What is read back next is read back by this command.
  void takeReadBack(uint32_t tag);
  bool fits(const Outstanding& own, const ReadBack& write) const;
  uint32_t oldestUnread() const;
  std::optional<ReadBack> nextReadBack() const;
  /// Asks the processor for what the read-backs behind the next one will touch.
  void prefetchReadBacks() const;
  /// A read that could be either was no pre-read, but the read-back that stood next.
  bool takeBackDoubt();

  void endWrite(const Outstanding& own, const CommandEnding& ending);
  void followUp(const Outstanding& own, const CommandEnding& ending);
  void endPreRead(const Outstanding& own, const CommandEnding& ending);
  void endRead(const DriveCommand& command, const Outstanding& own, const CommandEnding& ending, bool dataDelivered);
  void endVerify(const DriveCommand& command, const Outstanding& own, const CommandEnding& ending);
  void tellListener(const DriveCommand& command, BlockWorth worth) const;
  /// Every block of a command was worth the same.
  void countAll(const DriveCommand& command, BlockWorth worth);
  void countEach(const DriveCommand& command, const Outstanding& own);
  std::vector<uint32_t> liveInOrder() const;
  void dropDoubt(const std::vector<uint32_t>& lost);

  const CheckRules rules_;
  CheckCounters& counters_;
  BlockExpectations expectations_;
  std::vector<Outstanding> outstanding_;  ///< by tag
  Ring<ReadBack> readBacks_;              ///< of commands that ended; the first is read next
  Ring<BlockSpan> preReads_;              ///< that ended and whose atomic write is to come
  uint32_t unreadWrites_ = 0;             ///< outstanding writes that want a read-back and have none
  uint32_t unclaimedPreReads_ = 0;        ///< outstanding ones
  std::optional<Doubt> doubt_;            ///< until the commands tell
  bool readsNext_ = false;
  bool onTrack_ = true;
  /// Only writes, trims and read-backs of exactly their blocks so far, and all that ended did so well. Then a block
  /// holds what was written there last, every read-back is worth the same, and nothing has to be remembered of single
  /// blocks: `expectations_` is empty, and follows from the other members as soon as it is needed.
  bool plain_ = true;
  uint64_t now_ = 0;
};

}  // namespace corvane::host
