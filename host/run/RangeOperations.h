#pragma once

#include <cstdint>
#include <optional>

#include "host/framework/SharedVariables.h"
#include "host/framework/TagPool.h"
#include "host/run/DriveCounters.h"
#include "host/run/DriveQueue.h"
#include "host/run/RangeAgents.h"
#include "host/run/ZoneMap.h"

namespace corvane::host {

class CheckAccount;
class CommandJournal;
class ZoneWriter;

/// Which operations on ranges a test carries out.
struct RangeSettings {
  uint64_t zoneResetEveryCommands = 0;   ///< 0: never
  uint64_t invalidateEveryCommands = 0;  ///< 0: never
  ZoneMap zones;                         ///< at least one with zone resets
  uint64_t firstLba = 0;                 ///< of invalidated ranges
  uint64_t endLba = 0;                   ///< excluded
  uint32_t maxBlocks = 1;                ///< the longest of them
  uint64_t zoneResetSeed = 0;
  uint64_t invalidateSeed = 0;
  CommandJournal* journal = nullptr;  ///< told of every operation; null: nobody wants to know

  bool any() const { return zoneResetEveryCommands != 0 || invalidateEveryCommands != 0; }
};

/// Which operations the test's conditions allow just then.
struct RangeGates {
  bool zoneReset = true;
  bool invalidate = true;
};

/// Resets zones and invalidates ranges now and then, and tells the agent through "CSZoneReset" and
/// "CVNInvalidateRanges".
///
/// An operation is carried out between two calls of the agent, only while no command that the agent still waits for
/// overlaps its range, and its range is pushed when it has ended well: no command can be on either side of it without
/// the agent knowing on which. One that failed throws DriveError. One that met DriveConnectionLost may have been
/// carried out or not: it is thrown on, and the operation is done again before anything else.
///
/// Allocates nothing after its construction but what the queues need. One thread.
class RangeOperations {
 public:
  static constexpr uint32_t tries = 8;       ///< ranges that are looked at in a step
  static constexpr uint32_t patience = 256;  ///< steps before the agent has to let the commands run out

  /// Declares the host as the writer of the queues that it will push to.
  ///
  /// @param writer null, or the pointers of a host-managed drive, which the resets move
  ///
  /// All references outlive the object.
  RangeOperations(const RangeSettings& settings, const TagPool& tags, DriveQueue& queue, SharedVariables& variables,
                  DriveCounters& counters, CheckAccount& checks, ZoneWriter* writer);

  /// Resets every zone. For before the first command: nothing is outstanding and the agent expects nothing, so nothing
  /// is counted or pushed. Called again after a lost connection, it goes on with the zone that it was at.
  void emptyAllZones();

  /// Carries out what is due and can be done now.
  ///
  /// @param publishedTag the tag whose completion the agent will see next, or TagPool::none
  /// @param gates        an operation that is not allowed stays due; but a host-managed drive whose zones are full
  ///                     could take no command more, so that a zone is then reset all the same
  ///
  /// @return whether the agent may issue another command; if not, something must be done first that outstanding
  ///         commands stand in the way of
  bool carryOutDue(uint64_t commandsIssued, uint32_t publishedTag, const RangeGates& gates = {});

 private:
  /// When an operation is due.
  struct Schedule {
    uint64_t every = 0;
    uint64_t next = 0;       ///< in commands issued
    uint32_t postponed = 0;  ///< steps since it became due

    bool due(uint64_t commandsIssued) const { return every != 0 && commandsIssued >= next; }
    void done(uint64_t commandsIssued);
    /// Whether it can wait another step.
    bool postpone() { return ++postponed < patience; }
  };

  void finishInterrupted(uint64_t commandsIssued);
  bool carryOutZoneReset(uint64_t commandsIssued, uint32_t publishedTag);
  bool carryOutInvalidate(uint64_t commandsIssued, uint32_t publishedTag);
  bool mustMakeRoom() const;
  bool isBusy(const vdl::LBARange& range, uint32_t publishedTag) const;
  void resetAndTell(uint32_t zone, uint64_t commandsIssued);
  void invalidateAndTell(vdl::LBARange range, uint64_t commandsIssued);
  void resetZone(uint32_t zone);
  void run(CommandKind kind, const vdl::LBARange& range);

  const TagPool& tags_;
  DriveQueue& queue_;
  DriveCounters& counters_;
  CheckAccount& checks_;
  ZoneWriter* writer_;
  CommandJournal* journal_;
  const ZoneMap zones_;
  Schedule zoneResets_;
  Schedule invalidations_;
  std::optional<ZoneResetSource> zoneSource_;
  std::optional<InvalidateSource> invalidateSource_;
  vdl::LBARangeQueue* resetRanges_ = nullptr;
  vdl::LBARangeQueue* invalidRanges_ = nullptr;
  uint32_t zonesEmptied_ = 0;
  // What was begun and not told of; after a lost connection it is still there.
  std::optional<uint32_t> zoneBegun_;
  std::optional<vdl::LBARange> rangeBegun_;
};

}  // namespace corvane::host
