#include "host/explain/Explainer.h"

#include <algorithm>
#include <span>

#include "host/explain/LegalOutcomes.h"
#include "host/explain/Neighbours.h"
#include "host/explain/Sentences.h"
#include "host/explain/Suspects.h"
#include "host/explain/WrittenData.h"
#include "vdl/Status.h"

namespace corvane::host {
namespace {

constexpr size_t mostCommands = 400;  ///< of an explanation

/// Builds one explanation, step by step; each step uses what the ones before it found.
class Explainer {
 public:
  Explainer(const FindingEvidence& evidence, const std::vector<OtherDrive>& others)
      : evidence_(evidence), journal_(*evidence.journal), others_(others), data_(evidence) {}

  Explanation explain() {
    e_.lba = evidence_.lba;
    e_.sectorBytes = evidence_.geometry.sectorBytes();
    e_.history = evidence_.history;
    e_.legal = legalOutcomesIn(evidence_.history, evidence_.lba);
    findRead();
    findUnreadable();
    takeBlocks();
    findExpectedWrite();
    readAgain();
    e_.difference = differenceOf(e_.driveBlock, e_.referenceBlock);
    e_.expected = e_.referenceBlock.empty() ? std::nullopt : stampOf(e_.referenceBlock);
    e_.observed = e_.driveBlock.empty() ? std::nullopt : stampOf(e_.driveBlock);
    e_.kind = kind();
    e_.neighbours = neighbours(evidence_, data_);
    collectCommands();
    if (e_.legal.empty()) {
      collectLegal();
    }
    e_.suspects = suspectsOf(e_, evidence_);
    e_.sentences = sentencesOf(e_, evidence_);
    return std::move(e_);
  }

 private:
  void findRead() {
    const JournalEntry* read = evidence_.readId ? journal_.byCommandId(*evidence_.readId) : nullptr;
    for (uint64_t number = evidence_.foundAfter; read == nullptr && number >= journal_.oldestNumber() && number != 0;
         --number) {
      const JournalEntry* entry = journal_.byNumber(number);
      if (entry != nullptr && entry->looks() && entry->covers(evidence_.lba) &&
          entry->finishedUs <= evidence_.foundUs && entry->end == JournalEntry::End::finished) {
        read = entry;
      }
    }
    if (read != nullptr) {
      e_.read = *read;
    }
  }

  uint64_t readNumber() const { return e_.read ? e_.read->number : evidence_.foundAfter + 1; }

  /// Whether a command after the failing read may have changed the block.
  bool isOverwritten(uint64_t lba) const {
    const std::vector<const JournalEntry*> changes = data_.changesOf(lba, journal_.issuedCount() + 1);
    return !changes.empty() && changes.front()->number > readNumber();
  }

  /// A verify that had to find a difference, of data that may be anything but what it was, ended without one.
  bool expectedDifference() const { return evidence_.agentError.starts_with("Miscompare was expected"); }

  /// Whether the block had been declared invalid.
  bool isInvalidated() const {
    return std::ranges::any_of(journal_.incidents(), [this](const Incident& incident) {
      const uint64_t end = e_.read ? e_.read->endLba() : e_.lba + 1;
      return incident.what == Incident::What::invalidation && incident.firstLba < end && e_.lba < incident.endLba;
    });
  }

  /// Of a splice the agent names the range, not the block.
  void findUnreadable() {
    const bool splice = evidence_.agentStatus == vdl::status::writeSplice;
    if (!(splice || (expectedDifference() && !isInvalidated())) || !e_.read) {
      return;
    }
    for (uint32_t block = 0; block < e_.read->blocks; ++block) {
      const uint64_t lba = e_.read->lba + uint64_t{block} * e_.read->lbaStep;
      const std::vector<uint8_t>* now = evidence_.rereadOf(lba);
      if (now != nullptr && now->empty()) {
        e_.lba = lba;
        return;
      }
    }
  }

  void takeBlocks() {
    e_.driveBlock = evidence_.driveBlock;
    e_.referenceBlock = evidence_.referenceBlock;
    if (!evidence_.verifyData.empty() && e_.driveBlock.empty() && !expectedDifference()) {
      takeVerifiedBlock();
    } else if (const std::vector<uint8_t>* now = evidence_.rereadOf(e_.lba);
               e_.driveBlock.empty() && now != nullptr && !isOverwritten(e_.lba)) {
      e_.driveBlock = *now;
    }
  }

  /// A verify tells that something differs, not where: the first block that differs now is taken.
  void takeVerifiedBlock() {
    const size_t sector = evidence_.geometry.sectorBytes();
    const uint32_t step = e_.read ? e_.read->lbaStep : 1;
    for (size_t block = 0; (block + 1) * sector <= evidence_.verifyData.size(); ++block) {
      const uint64_t lba = evidence_.verifyLba + block * step;
      const std::vector<uint8_t>* now = evidence_.rereadOf(lba);
      const std::span<const uint8_t> wanted = std::span(evidence_.verifyData).subspan(block * sector, sector);
      if (now == nullptr || isOverwritten(lba)) {
        seenAll_ = false;
        continue;
      }
      const bool differs = !std::ranges::equal(*now, wanted);
      if (differs || e_.referenceBlock.empty()) {
        e_.lba = lba;
        e_.driveBlock = *now;
        e_.referenceBlock.assign(wanted.begin(), wanted.end());
      }
      if (differs) {
        return;
      }
    }
  }

  void findExpectedWrite() {
    const std::vector<const JournalEntry*> changes = data_.changesOf(e_.lba, readNumber());
    const auto matches = [this](const JournalEntry* change) {
      return !e_.referenceBlock.empty() && data_.contentOf(*change, e_.lba) == e_.referenceBlock;
    };
    auto found = std::ranges::find_if(changes, matches);
    if (found == changes.end() && evidence_.agentStatus == vdl::status::writeSplice) {
      found = changes.begin();  // the one that did not end well
    } else if (found == changes.end()) {
      found = std::ranges::find_if(changes, [](const JournalEntry* change) { return change->endedWell(); });
    }
    if (found != changes.end()) {
      e_.expectedWrite = **found;
      if (e_.referenceBlock.empty() && evidence_.agentStatus == vdl::status::miscompare) {
        e_.referenceBlock = data_.contentOf(**found, e_.lba).value_or(std::vector<uint8_t>());
      }
    }
  }

  void readAgain() {
    const std::vector<uint8_t>* now = evidence_.rereadOf(e_.lba);
    if (now == nullptr) {
      return;
    }
    if (isOverwritten(e_.lba)) {
      e_.reread = Reread::overwritten;
    } else if (now->empty()) {
      e_.reread = Reread::failed;
    } else if (*now == e_.referenceBlock) {
      e_.reread = Reread::asExpected;
    } else {
      e_.reread = *now == e_.driveBlock ? Reread::same : Reread::different;
    }
  }

  FindingKind kind() {
    if (evidence_.agentStatus == vdl::status::writeSplice) {
      return FindingKind::writeSplice;
    }
    if (evidence_.agentStatus == vdl::status::atomicOrder) {
      return FindingKind::atomicOrder;
    }
    if (evidence_.agentError.starts_with("Data match on invalidated") || (expectedDifference() && isInvalidated())) {
      return FindingKind::oldDataExpectedGone;
    }
    if (expectedDifference()) {
      return e_.reread == Reread::failed ? FindingKind::unreadable : FindingKind::unknown;
    }
    if (!e_.difference) {
      if (!evidence_.verifyData.empty()) {
        return seenAll_ ? FindingKind::verifyAlarm : FindingKind::unknown;
      }
      if (e_.reread == Reread::failed) {
        return FindingKind::unreadable;
      }
      return e_.driveBlock.empty() ? FindingKind::unknown : origin();
    }
    if (e_.difference->first >= evidence_.geometry.blockSize) {
      return FindingKind::protectionBytes;
    }
    // Two writes of the same sector of the pool differ in a few bits of the stamp, so who wrote it comes first.
    if (e_.difference->isFewBits() && !data_.writerOf(e_.driveBlock, e_.lba)) {
      return FindingKind::bitFlips;
    }
    return origin();
  }

  FindingKind origin() {
    if (isZero(e_.driveBlock)) {
      return FindingKind::zeros;
    }
    if (const std::optional<WrittenBlock> writer = data_.writerOf(e_.driveBlock, e_.lba)) {
      return of(*writer);
    }
    if (isOfAnotherDrive()) {
      return FindingKind::otherDrive;
    }
    if (evidence_.embedded && data_.isGenuine(e_.driveBlock)) {
      // Written before the first command that is remembered.
      e_.observedLba = e_.observed->lba;
      return e_.observedLba == e_.lba ? FindingKind::oldData : FindingKind::otherLba;
    }
    if (e_.difference && isTorn()) {
      return FindingKind::torn;
    }
    if (mayBeFromBefore()) {
      return FindingKind::oldData;
    }
    return e_.referenceBlock.empty() ? FindingKind::unknown : FindingKind::noise;
  }

  /// Whether the block may hold what no command of the test wrote: what was there before it, or what a zone reset or
  /// an invalidation left.
  bool mayBeFromBefore() const {
    if (!e_.expectedWrite || journal_.oldestNumber() != 1) {
      return false;
    }
    const std::vector<const JournalEntry*> earlier = data_.changesOf(e_.lba, e_.expectedWrite->number);
    const std::vector<Incident> incidents = journal_.incidents();
    return journal_.has(Incident::What::powerCut) || std::ranges::none_of(earlier, [&](const JournalEntry* change) {
             return change->endedWell() && !isUndone(*change, e_.lba, incidents);
           });
  }

  FindingKind of(const WrittenBlock& writer) {
    e_.observedWrite = *writer.write;
    e_.observedLba = writer.lba;
    return writer.lba == e_.lba ? FindingKind::oldData : FindingKind::otherLba;
  }

  bool isOfAnotherDrive() {
    if (!e_.observed) {
      return false;
    }
    const BlockStamp& stamp = *e_.observed;
    for (const OtherDrive& other : others_) {
      const JournalEntry* write = other.journal->byCommandId(stamp.commandId);
      if (write == nullptr || !write->changesContent() || stamp.lba < write->lba) {
        continue;
      }
      const uint64_t index = stamp.lba - write->lba;
      if (index < write->blocks && stamp.bucket == write->bucket + index) {
        e_.observedWrite = *write;
        e_.observedLba = stamp.lba;
        e_.observedDrive = other.name;
        return true;
      }
    }
    return false;
  }

  /// The first bytes as they had to be and the rest of something else, or the other way round.
  bool isTorn() {
    const size_t size = e_.driveBlock.size();
    const BlockDifference& difference = *e_.difference;
    if (difference.first > 0) {
      const std::optional<WrittenBlock> rest = data_.writerOfPart(e_.driveBlock, difference.first, size, e_.lba);
      const bool zeros = isZero(std::span(e_.driveBlock).subspan(difference.first));
      const bool other = difference.first >= stampBytes && difference.isDense() && difference.last + 2 >= size;
      if (rest || zeros || other) {
        e_.observedWrite = e_.expectedWrite;
        e_.observedLba = e_.lba;
        e_.tailId = rest ? std::optional(rest->write->commandId) : std::nullopt;
        return true;
      }
    }
    if (difference.last + 1 < size) {
      if (const auto head = data_.writerOfPart(e_.driveBlock, 0, difference.last + 1, e_.lba)) {
        e_.observedWrite = *head->write;
        e_.observedLba = head->lba;
        e_.tailId = e_.expectedWrite ? std::optional(e_.expectedWrite->commandId) : std::nullopt;
        return true;
      }
    }
    return false;
  }

  /// Without the agent's table: the deciding command's content and, when that one did not end well, the one before.
  void collectLegal() {
    if (!e_.expectedWrite) {
      return;
    }
    e_.legal.push_back({.text = contentText(*e_.expectedWrite),
                        .commandId = e_.expectedWrite->commandId,
                        .bucket = e_.expected ? std::optional(e_.expected->bucket) : std::nullopt});
    const std::vector<const JournalEntry*> earlier = data_.changesOf(e_.lba, e_.expectedWrite->number);
    if (!e_.expectedWrite->endedWell() && !earlier.empty()) {
      e_.legal.push_back(
          {.text = contentText(*earlier.front()), .commandId = earlier.front()->commandId, .bucket = std::nullopt});
    }
  }

  void collectCommands() {
    const uint64_t first = evidence_.rereadFirst;
    const uint64_t end = std::max<uint64_t>(first + evidence_.reread.size(), e_.lba + 1);
    for (uint64_t number = journal_.issuedCount(); number >= journal_.oldestNumber() && number != 0; --number) {
      const JournalEntry& entry = *journal_.byNumber(number);
      if (entry.lba < end && first < entry.endLba() && e_.commands.size() < mostCommands) {
        e_.commands.push_back(entry);
      }
    }
    std::ranges::reverse(e_.commands);
  }

  const FindingEvidence& evidence_;
  const CommandJournal& journal_;
  const std::vector<OtherDrive>& others_;
  const WrittenData data_;
  bool seenAll_ = true;  ///< every block of the verify that found a difference could be read again
  Explanation e_;
};

}  // namespace

Explanation explain(const FindingEvidence& evidence, const std::vector<OtherDrive>& others) {
  return Explainer(evidence, others).explain();
}

std::optional<Explanation> explainDrive(const RunResult& result, size_t drive) {
  const DriveResult& found = result.drives.at(drive);
  if (found.evidence == nullptr) {
    return std::nullopt;
  }
  std::vector<OtherDrive> others;
  for (size_t i = 0; i < result.drives.size(); ++i) {
    if (i != drive && result.drives[i].journal != nullptr) {
      others.push_back({.name = result.drives[i].name, .journal = result.drives[i].journal.get()});
    }
  }
  return explain(*found.evidence, others);
}

}  // namespace corvane::host
