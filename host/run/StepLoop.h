#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "host/drive/Drive.h"
#include "host/drive/DriveError.h"
#include "host/fault/FaultLedger.h"
#include "host/framework/DriveThreadHost.h"
#include "host/run/CdbBuilder.h"
#include "host/run/CheckAccount.h"
#include "host/run/CommandJournal.h"
#include "host/run/CommandSelector.h"
#include "host/run/ConditionSet.h"
#include "host/run/DriveCalls.h"
#include "host/run/DriveCounters.h"
#include "host/run/DriveQueue.h"
#include "host/run/HangWatch.h"
#include "host/run/HostClock.h"
#include "host/run/LbaAgent.h"
#include "host/run/RangeOperations.h"
#include "host/run/RunObserver.h"
#include "host/run/TagMemory.h"
#include "host/run/TestDefinition.h"
#include "host/run/ZoneWriter.h"
#include "vdl/Agent.h"

namespace corvane::host {

/// What a step loop needs to know of its test.
struct StepSettings {
  CommandMix mix;
  ConditionPlan conditions;
  uint32_t e2ePercent = 0;
  bool skipCommands = false;  ///< every command touches every other LBA only
  bool forceUnitAccess = false;
  uint64_t resetEveryCommands = 0;  ///< 0: never
  RangeSettings ranges;
  bool hostManaged = false;  ///< writes go to the write pointers of `ranges.zones`, which are reset now and then
  uint32_t deviceInterface = 0;
  bool readDataDelivered = true;
  std::string lossEndsTest;  ///< why the test cannot go on after a lost connection (`whyLossEndsTest`); empty: it can
  uint32_t minBlocks = 1;
  uint32_t maxBlocks = 1;
  uint64_t minLba = 0;
  uint64_t maxLba = 0;  ///< included
  uint64_t selectorSeed = 0;
  uint64_t zoneWriterSeed = 0;
  uint64_t watchdogMs = 60'000;
  CheckRules checks;                             ///< by which the agent reads back
  FaultLedger* ledger = nullptr;                 ///< told of the commands of a drive that does wrong on purpose
  CommandJournal* journal = nullptr;             ///< told of every command; null: nobody wants to know
  RunObserver* observer = &RunObserver::none();  ///< told of resets, power cuts and losses; never null
  DriveCalls* calls = nullptr;                   ///< told of calls that may not return; null: nobody waits
  uint32_t driveIndex = 0;                       ///< as the observer knows the drive
};

/// Makes the steps of one drive's test.
///
/// A step clears the conditions, sets those of the phases and the chosen ones, publishes what the LBA agent generated,
/// carries out the operations on ranges that are due and allowed, calls the agent's `execute`, carries out the one
/// thing whose condition the agent applied, resets the device when that is due and allowed, and publishes the next
/// completion, if there is one. It waits for a completion only when every tag is outstanding, or when an operation on a
/// range cannot wait any longer: then the agent sees no free tag until the commands in the way have ended.
///
/// When the connection to the drive is lost, the loop resets the drive and goes on; the agent learns of a device reset.
///
/// The loop throws std::logic_error when the agent breaks the rules of a step (two conditions applied, a command
/// without a free tag, data that do not fit the command, a change outside the range of the test), DriveError when the
/// drive fails, completes nothing for the watchdog's time, cannot be reached again, or loses its connection in a test
/// that cannot bear it. After an exception the object is of no further use.
///
/// One thread. The shared variables that the agent maps are ready once the constructor has returned.
class StepLoop {
 public:
  static constexpr uint32_t resetTries = 5;  ///< of a drive that is lost again in each of its resets
  static constexpr const char* resetCall = "a reset of the drive";
  static constexpr uint32_t lossesInARow = 16;  ///< without a command that ended; then the drive has failed

  /// All references outlive the object. `configData` is the agent's record; the drive's record is asked of `host`
  /// at each call.
  StepLoop(const vdl::AgentTable& agent, const void* configData, DriveThreadHost& host, Drive& drive,
           LbaAgent& lbaAgent, const StepSettings& settings, DriveCounters& counters, HostClock& clock);

  /// Brings the drive into the state in which the test begins: a host-managed drive's zones are emptied. Once, before
  /// the first step.
  void prepareDrive();

  /// Makes one step.
  ///
  /// @return 0, or the status with which the agent ended the test
  int32_t step();

  /// Delivers everything that is outstanding, one completion a call of `execute`, so that the last reads are
  /// compared too. No tag is free any more, so the agent prepares nothing; no step may follow.
  ///
  /// @return 0, or the status with which the agent ended the test
  int32_t drain();

  /// Waits for everything that is outstanding and tells nobody. For after the agent has ended the test. What is lost
  /// with the connection is given up.
  void abandon();

  /// Knows which commands hang, and what to do about it.
  const HangWatch& hangWatch() const { return hangWatch_; }

  /// The drive was destroyed, to have it done with the memory of its commands. Nothing may be called any more.
  void driveIsGone() { readMemory_.forgetDrive(); }

  /// Reads blocks as they are now, past the agent. For after the test: nothing is outstanding.
  ///
  /// @param blocks at most the longest transfer
  /// @return the sectors; empty when the read failed, or its connection was lost again and again. Throws DriveError as
  /// a
  ///         wait does, and when the drive cannot be reached again.
  std::vector<uint8_t> readNow(uint64_t lba, uint32_t blocks);

  /// What the verify that the agent was told of last had compared the drive's data with, sector after sector; empty
  /// when the agent was told of another command since. Until the agent's memory is released.
  std::vector<uint8_t> verifiedData() const;
  /// The first LBA of that verify.
  uint64_t verifiedLba() const { return lastVerify_.lba; }

  uint64_t commandsIssued() const { return commandsIssued_; }

 private:
  static constexpr uint32_t nothing = 0xFFFFFFFF;  ///< "LastTagID" and "LastStatusByte" when no command finished

  /// A step on a drive whose connection holds.
  int32_t makeStep();
  int32_t callExecute();
  /// @return whether the agent may issue another command
  bool carryOutRangeOperations();
  /// A step in which the agent sees no free tag, so that it issues nothing.
  int32_t quietStep();
  void parkFreeTags();
  /// Calls the agent while no tag is free.
  int32_t executeQuietly();
  void publishChoice();
  void publishZonePosition();
  void absorbZonePosition();
  void publishNone();
  /// @param rightAfterIssue see CommandJournal::finished
  void publishCompletion(const DriveCompletion& completion, bool rightAfterIssue = false);
  void noteIncident(Incident::What what);
  void countCompletion(const DriveCommand& command, const DriveCompletion& completion, bool rightAfterIssue);
  void absorbTakenBackTags();
  void runConditionedStep(uint32_t peekedTag);
  void issue(CommandKind kind, uint32_t peekedTag);
  DriveCommand buildCommand(CommandKind kind, uint32_t tag);
  void checkRange(const DriveCommand& command) const;
  void attachWriteData(DriveCommand& command);
  void checkZonePosition(const DriveCommand& command) const;
  void publishCommandBlock(const DriveCommand& command);
  void cutPower();
  /// The drive's part of a reset, and telling everybody but the agent.
  void resetDrive();
  int32_t resetDevice();
  int32_t tellAgentOfReset();
  void publishLostSync();
  int32_t drainOnce(bool& done);

  // What a lost connection takes (StepLoopLoss.cpp).
  /// Makes the drive ready again and tells the agent of a device reset.
  ///
  /// @return 0, or the status with which the agent ended the test
  int32_t goOnAfter(const DriveConnectionLost& lost);
  void noteLoss(const DriveConnectionLost& lost);
  void closeZonesOfSentWrites();
  /// Resets the drive, more than once when need be.
  void reachDrive();
  void letOutstandingEnd();
  bool readOnce(const DriveCommand& command, DriveCompletion& completion);

  void forgetOutstanding();
  void tellOfUnsentCommands();
  void takeBackUnsentWrites();
  bool hasChosenRange(const DriveCommand& command) const;
  bool mayBePreRead(const DriveCommand& command) const;
  /// Publishes at most one completion.
  void getStatus(bool wait);

  const vdl::AgentTable& agent_;
  const void* const configData_;
  DriveThreadHost& host_;
  vdl::DriveThread& thread_;
  TagPool& tags_;
  Drive& drive_;
  LbaAgent& lbaAgent_;
  const StepSettings settings_;
  DriveCounters& counters_;
  HostClock& clock_;

  // The shared variables, in the names of their agents' interface.
  uint64_t& lba_;
  uint32_t& xferLength_;
  uint32_t& atomicBound_;
  uint32_t& skipGen_;
  uint32_t& epo_;
  uint32_t& lastTagId_;
  uint32_t& lastStatusByte_;
  uint32_t& readDataIsValid_;
  uint64_t& writeLba_;
  uint32_t& writeXferLength_;
  uint32_t& writeCmdUsed_;
  uint32_t& bucketIndex_;
  vdl::Buffer& writeData_;
  vdl::Buffer& lastErrSenseData_;
  TaggedViews& readDataPtr_;
  TaggedViews& cdb_;
  TaggedViews& recvCdb_;
  TaggedViews& parameterList_;

  std::optional<ZoneWriter> zoneWriter_;  ///< of a host-managed drive
  DriveQueue queue_;
  HangWatch hangWatch_;
  CheckAccount checks_;
  RangeOperations ranges_;
  const ConditionSet conditions_;
  CommandSelector selector_;
  TagMemory readMemory_;
  struct PerTag {
    Cdb cdb{};
    Cdb recvCdb{};
    UnmapParameterList parameterList{};
    bool preRead = false;
  };
  std::vector<PerTag> perTag_;
  std::vector<uint32_t> parkedTags_;  ///< tags that are kept from the agent for a step

  DriveCompletion completion_;        ///< scratch of getStatus: to clear one costs more than to fill it
  std::optional<LbaChoice> choice_;   ///< what the LBA agent generated last
  uint64_t selected_ = 0;             ///< the condition bits that were set before the agent ran
  uint32_t syncTag_ = TagPool::none;  ///< outstanding cache flush
  std::optional<uint32_t> lostSync_;  ///< a flush that a reset took away and nobody was told of
  uint32_t publishedTag_ = TagPool::none;
  uint32_t justIssued_ = TagPool::none;  ///< tag of the short command that this step issued
  DriveCommand lastVerify_;  ///< when the completion that was published last was a verify's; else without data
  uint64_t commandsIssued_ = 0;
  uint32_t lossesSinceCompletion_ = 0;
  uint64_t completionsAtLoss_ = 0;
  uint64_t nextReset_ = 0;                 ///< in commands issued
  uint32_t writesUsed_ = 0;                ///< "WriteCmdUsed" as it was last seen
  std::optional<ZonePosition> zoneWrite_;  ///< where the agent had to write in this step, if it wrote
  bool draining_ = false;
};

}  // namespace corvane::host
