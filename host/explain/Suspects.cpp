#include "host/explain/Suspects.h"

#include <algorithm>
#include <initializer_list>

#include "host/explain/WrittenData.h"

namespace corvane::host {
namespace {

using enum FaultClass;
using State = NeighbourBlock::State;

constexpr uint64_t soon = 128;  ///< commands between a write and a read that may have overtaken it
constexpr uint64_t bytesOf4k = 4096;
constexpr uint64_t farTrim = 64;  ///< blocks behind a trim's end that it does not reach

/// Collects suspects, each once, in the order of their mention.
class Suspects {
 public:
  Suspects(const Explanation& e, const FindingEvidence& evidence) : e_(e), evidence_(evidence) {}

  std::vector<FaultClass> take() {
    switch (e_.kind) {
      case FindingKind::oldData:
        oldData();
        break;
      case FindingKind::otherLba:
        otherLba();
        break;
      case FindingKind::otherDrive:
        add({crossTalk});
        break;
      case FindingKind::zeros:
        zeros();
        break;
      case FindingKind::torn:
        torn();
        break;
      case FindingKind::bitFlips:
        bitFlips();
        break;
      case FindingKind::protectionBytes:
        add({protectionDamage});
        bitFlips();
        break;
      case FindingKind::noise:
        noise();
        break;
      case FindingKind::unreadable:
      case FindingKind::writeSplice:
        add({writeSplice});
        break;
      case FindingKind::atomicOrder:
        add({atomicTear});
        oldData();
        break;
      case FindingKind::verifyAlarm:
        verifyAlarm();
        break;
      case FindingKind::oldDataExpectedGone:
        add({invalidateIgnored});
        break;
      case FindingKind::unknown:
        anything();
        break;
    }
    return std::move(suspects_);
  }

 private:
  void add(std::initializer_list<FaultClass> classes) {
    for (const FaultClass what : classes) {
      if (std::ranges::find(suspects_, what) == suspects_.end()) {
        suspects_.push_back(what);
      }
    }
  }

  /// Only the one read was wrong.
  bool isTransient() const { return e_.reread == Reread::asExpected; }
  /// Nobody can say whether the medium or the read was wrong.
  bool isOpen() const {
    return !e_.reread || *e_.reread == Reread::overwritten || *e_.reread == Reread::different ||
           *e_.reread == Reread::failed;
  }

  bool expectedTrim() const { return e_.expectedWrite && e_.expectedWrite->kind == CommandKind::trim; }

  bool powerWasCut() const { return evidence_.journal->has(Incident::What::powerCut); }

  std::vector<State> statesOfExpectedWrite() const {
    std::vector<State> states;
    for (const NeighbourBlock& block : e_.neighbours) {
      if (e_.expectedWrite && e_.expectedWrite->covers(block.lba)) {
        states.push_back(block.state);
      }
    }
    return states;
  }

  /// The write's blocks up to one are there, those from it on are not.
  bool beginsOnly() const {
    const std::vector<State> states = statesOfExpectedWrite();
    const auto broken = std::ranges::find_if(states, [](State state) { return state != State::expected; });
    return broken != states.begin() && broken != states.end() &&
           std::none_of(broken, states.end(), [](State state) { return state == State::expected; });
  }

  /// LBA of the first block of the expected write that is not there.
  uint64_t firstMissing() const {
    for (const NeighbourBlock& block : e_.neighbours) {
      if (e_.expectedWrite && e_.expectedWrite->covers(block.lba) && block.state != State::expected) {
        return block.lba;
      }
    }
    return e_.lba;
  }

  /// Whether data of the expected write stand where it did not write.
  bool isElsewhere() const {
    return e_.expectedWrite && std::ranges::any_of(e_.neighbours, [this](const NeighbourBlock& block) {
             return block.commandId == e_.expectedWrite->commandId && !e_.expectedWrite->covers(block.lba);
           });
  }

  /// Whether the old data's write overlaps the expected one only in part: then only the common blocks are old.
  bool overlapInPart() const {
    return e_.observedWrite && e_.expectedWrite &&
           (e_.observedWrite->lba > e_.expectedWrite->lba || e_.observedWrite->endLba() < e_.expectedWrite->endLba());
  }

  bool readSoonAfter() const {
    return !e_.read || !e_.expectedWrite || e_.read->number - e_.expectedWrite->number <= soon;
  }

  void transientOldData() {
    if (readSoonAfter()) {
      add({readOvertakes});
    }
    add({staleRead});
  }

  void missingWrite() {
    const std::vector<State> states = statesOfExpectedWrite();
    const bool allMissing = std::ranges::count(states, State::expected) == 0;
    if (powerWasCut()) {
      add({lyingFlush});
    }
    if (isElsewhere()) {
      add({misdirectedWrite});
    }
    if (allMissing) {
      add({lostWrite});
    }
    const bool writeSame = e_.expectedWrite && e_.expectedWrite->kind == CommandKind::writeSame;
    if (beginsOnly()) {
      if (writeSame && states.size() > 1 && states[states.size() - 2] == State::expected) {
        add({writeSameShort});
      }
      if (firstMissing() * evidence_.geometry.blockSize % bytesOf4k == 0) {
        add({tornWrite4k});
      }
      add({tornWrite, wrongStatus});
    }
    if (!allMissing && overlapInPart()) {
      add({orderInversion});
    }
    add({lostWrite, orderInversion, tornWrite, tornWrite4k, wrongStatus, misdirectedWrite});
    if (writeSame) {
      add({writeSameShort});
    }
  }

  void oldData() {
    if (expectedTrim()) {
      add({trimIgnored});
    }
    if (isTransient()) {
      transientOldData();
      add({misdirectedRead});
      return;
    }
    missingWrite();
    if (isOpen()) {
      transientOldData();
    }
    add({swappedBlock, misdirectedRead, crossTalk, mixedCommands, verifyAlwaysEqual});
  }

  void otherLba() {
    if (isTransient()) {
      add({misdirectedRead});
      return;
    }
    const bool sameWrite = e_.observedWrite && e_.expectedWrite && e_.observedWrite->number == e_.expectedWrite->number;
    if (sameWrite) {
      add({swappedBlock});
    }
    add({misdirectedWrite, swappedBlock});
    if (isOpen()) {
      add({misdirectedRead});
    }
    // Two commands that drew the same sector of the pool differ in their stamps only, so half of one is the whole.
    add({crossTalk, mixedCommands});
  }

  /// A trim whose end lies a little before the block may have gone on, unless it was over before the block was written.
  bool trimEndsBefore() const {
    const CommandJournal& journal = *evidence_.journal;
    for (uint64_t number = journal.oldestNumber(); number <= journal.issuedCount(); ++number) {
      const JournalEntry& command = *journal.byNumber(number);
      const bool near = command.endLba() <= e_.lba && e_.lba - command.endLba() < farTrim;
      if (command.kind == CommandKind::trim && near &&
          (!e_.expectedWrite || command.finishedUs >= e_.expectedWrite->issuedUs)) {
        return true;
      }
    }
    return false;
  }

  bool wasWrittenBefore() const {
    return e_.expectedWrite && !WrittenData(evidence_).changesOf(e_.lba, e_.expectedWrite->number).empty();
  }

  void zeros() {
    if (isTransient()) {
      transientOldData();
      add({misdirectedRead});
      return;
    }
    if (trimEndsBefore()) {
      add({trimTooFar});
    }
    if (wasWrittenBefore()) {
      add({zeroedBlock});
      missingWrite();
    } else {
      missingWrite();
      add({zeroedBlock});
    }
    if (isOpen()) {
      transientOldData();
    }
    add({misdirectedRead, swappedBlock});
  }

  void torn() {
    if (beginsOnly() || (e_.difference && e_.difference->first % 512 == 0)) {
      add({tornWrite});
    }
    add({mixedCommands, wrongStatus, tornWrite, tornWrite4k, lyingFlush});
  }

  void bitFlips() {
    if (isTransient()) {
      add({bitFlipRead});
      return;
    }
    add({bitFlipRest, bitFlipWrite, verifyAlwaysEqual});
    if (isOpen()) {
      add({bitFlipRead});
    }
  }

  void noise() {
    if (isTransient()) {
      add({misdirectedRead, staleRead, readOvertakes});
    }
    if (expectedTrim()) {
      add({trimIgnored});
    }
    add({mixedCommands, misdirectedWrite, lostWrite, misdirectedRead, wrongStatus});
  }

  void anything() {
    missingWrite();
    transientOldData();
    add({bitFlipRest, bitFlipWrite, bitFlipRead, misdirectedRead, zeroedBlock, swappedBlock, mixedCommands,
         verifyFalseAlarm, verifyAlwaysEqual, crossTalk, protectionDamage, trimIgnored, trimTooFar, writeSplice});
  }

  void verifyAlarm() { add({verifyFalseAlarm, bitFlipRead, staleRead, readOvertakes, misdirectedRead}); }

  const Explanation& e_;
  const FindingEvidence& evidence_;
  std::vector<FaultClass> suspects_;
};

}  // namespace

std::vector<FaultClass> suspectsOf(const Explanation& explanation, const FindingEvidence& evidence) {
  return Suspects(explanation, evidence).take();
}

}  // namespace corvane::host
