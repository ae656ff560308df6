#include "host/run/CheckAccount.h"

#include <algorithm>
#include <utility>

namespace corvane::host {

CheckAccount::CheckAccount(CheckRules rules, uint32_t tags, CheckCounters& counters)
    : rules_(std::move(rules)), counters_(counters), expectations_(rules_.longestSpan), outstanding_(tags) {}

void CheckAccount::tellListener(const DriveCommand& command, BlockWorth worth) const {
  for (uint32_t block = 0; block < command.blocks && rules_.listener; ++block) {
    rules_.listener(command, command.lbaOf(block), worth);
  }
}

void CheckAccount::countAll(const DriveCommand& command, BlockWorth worth) {
  tellListener(command, worth);
  counters_.add(worth, command.blocks);
}

void CheckAccount::loseTrack() {
  onTrack_ = false;
  expectations_.clear();
  readBacks_.clear();
  preReads_.clear();
  doubt_.reset();
}

CheckAccount::Outstanding& CheckAccount::begin(const DriveCommand& command) {
  Outstanding& own = outstanding_[command.tag];
  own = {};
  own.live = true;
  own.kind = command.kind;
  own.span = spanOf(command.lba, command.blocks);
  own.blocks = command.blocks;
  own.issued = ++now_;
  return own;
}

CheckAccount::Choice CheckAccount::nextChoice() {
  const uint64_t waiting = readBacks_.size() + unreadWrites_;
  if (waiting < rules_.minQueueSize) {
    readsNext_ = false;
  } else if (waiting >= rules_.maxQueueSize) {
    readsNext_ = true;
  } else if (rules_.randomSelection) {
    return Choice::either;
  }
  return readsNext_ ? Choice::read : Choice::write;
}

void CheckAccount::prefetchReadBacks() const {
  // The first one may be what is issued now.
  const size_t waiting = readBacks_.size();
  if (waiting > 1) {
    expectations_.prefetchPieces(spanOf(readBacks_[1].lba, readBacks_[1].blocks));
  }
  if (waiting > 2) {
    expectations_.prefetchPlace(spanOf(readBacks_[2].lba, readBacks_[2].blocks));
  }
}

bool CheckAccount::issued(const DriveCommand& command, Origin origin) {
  if (command.kind == CommandKind::syncCache) {
    return false;
  }
  if (plain_) {
    if (issuedPlainly(command, origin)) {
      return false;
    }
    leavePlain();
  }
  prefetchReadBacks();
  Outstanding& own = begin(command);
  if (!onTrack_) {
    own.preRead = origin.mayBePreRead;
    return own.preRead;
  }
  const Choice choice = nextChoice();
  switch (command.kind) {
    case CommandKind::write:
    case CommandKind::writeSame:
    case CommandKind::trim:
      issueWrite(own, true);
      break;
    case CommandKind::writeAtomic:
      issueAtomicWrite(own, origin.chosenRange);
      break;
    case CommandKind::read:
      return issueRead(command.tag, origin.mayBePreRead, choice);
    default:
      if (!issueReadBack(command.tag) && !(takeBackDoubt() && issueReadBack(command.tag))) {
        loseTrack();
      }
  }
  return false;
}

bool CheckAccount::issueRead(uint32_t tag, bool mayBePreRead, Choice choice) {
  Outstanding& own = outstanding_[tag];
  do {
    if (mayBePreRead && isPreRead(own, choice)) {
      own.preRead = true;
      ++unclaimedPreReads_;
      return true;
    }
    if (issueReadBack(tag)) {
      return false;
    }
    // Perhaps a read was taken for what it was not.
  } while (takeBackDoubt());
  loseTrack();
  own.preRead = mayBePreRead;
  return own.preRead;
}

void CheckAccount::issueWrite(Outstanding& own, bool certain) {
  own.wantsReadBack = true;
  ++unreadWrites_;
  expectations_.writeIssued(own.span, certain, own.issued);
}

void CheckAccount::issueAtomicWrite(Outstanding& own, bool chosenRange) {
  const bool known = chosenRange && expectations_.isKnownForAtomicWrite(own.span.first, own.span.first + own.blocks);
  issueWrite(own, false);
  if (known) {
    return;
  }
  // It is built on the first pre-read that ended, or else on the first that is outstanding.
  while (!usePreRead(own)) {
    if (!takeBackDoubt()) {
      loseTrack();
      return;
    }
  }
}

bool CheckAccount::usePreRead(const Outstanding& own) {
  if (!preReads_.empty()) {
    if (!(preReads_.front() == own.span)) {
      return false;
    }
    preReads_.popFront();
    expectations_.giveUp(own.span);
    doubt_.reset();
    return true;
  }
  Outstanding* first = nullptr;
  for (uint32_t tag = 0; tag < outstanding_.size() && unclaimedPreReads_ != 0; ++tag) {
    Outstanding& other = outstanding_[tag];
    if (other.live && other.preRead && !other.claimed && (first == nullptr || other.issued < first->issued)) {
      first = &other;
    }
  }
  if (first == nullptr || !(first->span == own.span)) {
    return false;
  }
  first->claimed = true;
  --unclaimedPreReads_;
  doubt_.reset();
  return true;
}

bool CheckAccount::isPreRead(const Outstanding& own, Choice choice) {
  if (choice != Choice::either) {
    return choice == Choice::write;
  }
  // The agent reads ahead only when it knows too little of the range and no other pre-read waits for its write.
  if (!preReads_.empty() || unclaimedPreReads_ != 0 ||
      expectations_.isKnownForAtomicWrite(own.span.first, own.span.first + own.blocks)) {
    return false;
  }
  if (const std::optional<ReadBack> next = nextReadBack(); next && fits(own, *next)) {
    doubt_ = {.preRead = own.span, .issued = own.issued, .readBack = spanOf(next->lba, next->blocks)};
  }
  return true;
}

bool CheckAccount::fits(const Outstanding& own, const ReadBack& write) const {
  const BlockSpan written = spanOf(write.lba, write.blocks);
  if (own.kind == CommandKind::verify) {
    return own.span.first >= written.first && own.span.end <= written.end;
  }
  return rules_.slideReads && !write.probe ? own.span.overlaps(written) : own.span == written;
}

uint32_t CheckAccount::oldestUnread() const {
  uint32_t oldest = noTag;
  for (uint32_t tag = 0; tag < outstanding_.size() && unreadWrites_ != 0; ++tag) {
    const Outstanding& other = outstanding_[tag];
    if (other.live && other.wantsReadBack && other.linkedRead == noTag &&
        (oldest == noTag || other.issued < outstanding_[oldest].issued)) {
      oldest = tag;
    }
  }
  return oldest;
}

std::optional<CheckAccount::ReadBack> CheckAccount::nextReadBack() const {
  if (!readBacks_.empty()) {
    return readBacks_.front();
  }
  const uint32_t writer = oldestUnread();
  if (writer == noTag) {
    return std::nullopt;
  }
  return ReadBack{.lba = outstanding_[writer].span.first, .blocks = outstanding_[writer].blocks};
}

bool CheckAccount::issueReadBack(uint32_t tag) {
  Outstanding& own = outstanding_[tag];
  const std::optional<ReadBack> write = nextReadBack();
  if (!write || !fits(own, *write)) {
    return false;
  }
  own.probe = write->probe;
  own.repeated = write->repeated;
  takeReadBack(tag);
  return expectations_.readBackIssued(own.span, spanOf(write->lba, write->blocks), own.issued);
}

void CheckAccount::takeReadBack(uint32_t tag) {
  if (!readBacks_.empty()) {
    readBacks_.popFront();
  } else {
    outstanding_[oldestUnread()].linkedRead = tag;
    --unreadWrites_;
  }
}

bool CheckAccount::takeBackDoubt() {
  if (!doubt_) {
    return false;
  }
  const Doubt doubt = *std::exchange(doubt_, std::nullopt);
  for (uint32_t tag = 0; tag < outstanding_.size(); ++tag) {
    Outstanding& other = outstanding_[tag];
    if (other.live && other.issued == doubt.issued) {
      other.preRead = false;
      --unclaimedPreReads_;
      return issueReadBack(tag);
    }
  }
  // It has ended: what it read was not kept as what the atomic write will replace.
  const auto takeFirst = [](auto& queue, const auto& test) {
    bool taken = false;
    queue.eraseIf([&](const auto& element) { return !taken && (taken = test(element)); });
    return taken;
  };
  const bool written =
      takeFirst(readBacks_, [&](const ReadBack& next) { return spanOf(next.lba, next.blocks) == doubt.readBack; });
  const bool hashed = takeFirst(preReads_, [&](const BlockSpan& next) { return next == doubt.preRead; });
  for (const BlockSpan& span : {doubt.readBack, doubt.preRead}) {
    expectations_.confuse(span);
  }
  return (!written || expectations_.giveUp(doubt.readBack)) && (!hashed || expectations_.giveUp(doubt.preRead));
}

void CheckAccount::completed(const DriveCommand& command, const DriveCompletion& completion, bool dataDelivered) {
  if (command.kind == CommandKind::syncCache) {
    return;
  }
  if (plain_) {
    if (completedPlainly(command, completion, dataDelivered)) {
      return;
    }
    leavePlain();
  }
  Outstanding& own = outstanding_[command.tag];
  own.live = false;
  ++now_;
  const bool brings = command.kind == CommandKind::read || command.kind == CommandKind::verify;
  if (!onTrack_) {
    if (brings && !own.preRead) {
      countAll(command, {.reason = Uncheckable::untold});
    }
    return;
  }
  const CommandEnding ending = endingOf(completion, rules_.readsSense);
  if (!brings) {
    endWrite(own, ending);
    followUp(own, ending);
  } else if (own.preRead) {
    endPreRead(own, ending);
  } else if (command.kind == CommandKind::read) {
    endRead(command, own, ending, dataDelivered);
  } else {
    endVerify(command, own, ending);
  }
}

void CheckAccount::endWrite(const Outstanding& own, const CommandEnding& ending) {
  if (own.kind == CommandKind::writeAtomic) {
    expectations_.atomicWriteEnded(own.span, own.issued, ending.good());
    return;
  }
  std::optional<uint64_t> failedFrom;
  if (!ending.good()) {
    failedFrom = ending.failingLba.value_or(own.span.first);
  }
  expectations_.writeEnded(own.span, own.issued, failedFrom);
}

void CheckAccount::followUp(const Outstanding& own, const CommandEnding& ending) {
  bool readBack = own.wantsReadBack;
  bool probe = false;
  if (!ending.good()) {
    // A failed atomic write is read back as it is, any other one only to see whether its blocks can be read at all.
    const bool atomic = own.kind == CommandKind::writeAtomic;
    probe = !atomic && rules_.spliceDetection && !ending.mediumError;
    readBack = atomic || probe;
  }
  if (own.linkedRead != noTag) {
    if (probe) {
      outstanding_[own.linkedRead].probe = true;
    }
    return;
  }
  unreadWrites_ -= own.wantsReadBack ? 1U : 0U;
  if (readBack) {
    readBacks_.pushBack({.lba = own.span.first, .blocks = own.blocks, .probe = probe});
  } else {
    expectations_.giveUp(own.span);
  }
}

void CheckAccount::endPreRead(const Outstanding& own, const CommandEnding& ending) {
  unclaimedPreReads_ -= own.claimed ? 0U : 1U;
  if (!ending.good()) {
    return;
  }
  expectations_.hashed(own.span, !own.claimed, now_);
  if (!own.claimed) {
    preReads_.pushBack(own.span);
  }
}

void CheckAccount::endRead(const DriveCommand& command, const Outstanding& own, const CommandEnding& ending,
                           bool dataDelivered) {
  std::optional<Uncheckable> ofAll;
  if (!ending.good()) {
    ofAll = Uncheckable::commandFailed;
  } else if (own.probe) {
    ofAll = Uncheckable::probe;
  } else if (!dataDelivered) {
    ofAll = Uncheckable::noData;
  }
  if (ofAll) {
    expectations_.readEnded(own.span, own.issued, false, [](BlockWorth, uint64_t) {});
    countAll(command, {.reason = *ofAll});
  } else if (rules_.listener || doubt_) {
    countEach(command, own);
  } else {
    expectations_.readEnded(own.span, own.issued, false,
                            [this](BlockWorth worth, uint64_t blocks) { counters_.add(worth, blocks); });
  }
  if (ending.aborted && own.probe && !own.repeated) {
    readBacks_.pushFront({.lba = own.span.first, .blocks = own.blocks, .probe = true, .repeated = true});
  }
}

void CheckAccount::countEach(const DriveCommand& command, const Outstanding& own) {
  for (uint64_t lba = own.span.first; lba < own.span.end; lba += own.span.step) {
    BlockWorth worth = expectations_.readEnded(lba, own.issued, false);
    if (doubt_ && (doubt_->preRead.contains(lba) || doubt_->readBack.contains(lba))) {
      worth = {.reason = Uncheckable::untold};
    }
    if (rules_.listener) {
      rules_.listener(command, lba, worth);
    }
    counters_.add(worth, 1);
  }
}

void CheckAccount::endVerify(const DriveCommand& command, const Outstanding& own, const CommandEnding& ending) {
  if (!ending.good() && !ending.verifyMiscompare) {
    countAll(command, {.reason = Uncheckable::commandFailed});
  } else if (doubt_ && (doubt_->preRead.overlaps(own.span) || doubt_->readBack.overlaps(own.span))) {
    countAll(command, {.reason = Uncheckable::untold});
  } else if (!expectations_.isCertain(own.span, own.issued)) {
    countAll(command, {.reason = Uncheckable::verifyMayDiffer});
  } else {
    countAll(command, {.outcomes = 1});
  }
  expectations_.readEnded(own.span, own.issued, false, [](BlockWorth, uint64_t) {});
}

std::vector<uint32_t> CheckAccount::liveInOrder() const {
  std::vector<uint32_t> live;
  for (uint32_t tag = 0; tag < outstanding_.size(); ++tag) {
    if (outstanding_[tag].live) {
      live.push_back(tag);
    }
  }
  std::sort(live.begin(), live.end(),
            [this](uint32_t a, uint32_t b) { return outstanding_[a].issued < outstanding_[b].issued; });
  return live;
}

void CheckAccount::dropDoubt(const std::vector<uint32_t>& lost) {
  const bool isLost = doubt_ && std::any_of(lost.begin(), lost.end(), [this](uint32_t tag) {
                        return outstanding_[tag].issued == doubt_->issued;
                      });
  if (isLost) {
    // Now it leaves no trace by which it could be told.
    expectations_.confuse(doubt_->preRead);
    expectations_.confuse(doubt_->readBack);
    doubt_.reset();
  }
}

void CheckAccount::allLost() {
  leavePlain();
  ++now_;
  const std::vector<uint32_t> lost = liveInOrder();
  CommandEnding lostEnding;
  lostEnding.aborted = true;
  for (const uint32_t tag : lost) {
    Outstanding& own = outstanding_[tag];
    own.live = false;
    const bool brings = own.kind == CommandKind::read || own.kind == CommandKind::verify;
    if (!onTrack_ || !brings || own.preRead) {
      continue;
    }
    // Reads are repeated, those lost last come first; verifies are not.
    const bool again = own.kind == CommandKind::read;
    expectations_.readEnded(own.span, own.issued, again, [](BlockWorth, uint64_t) {});
    if (again) {
      readBacks_.pushFront({.lba = own.span.first, .blocks = own.blocks, .probe = own.probe});
    }
  }
  unclaimedPreReads_ = 0;
  dropDoubt(lost);
  for (const uint32_t tag : lost) {
    const Outstanding& own = outstanding_[tag];
    if (!onTrack_ || !changesMedium(own.kind)) {
      continue;
    }
    endWrite(own, lostEnding);
    const bool atomic = own.kind == CommandKind::writeAtomic;
    if (atomic || rules_.spliceDetection) {
      readBacks_.pushBack({.lba = own.span.first, .blocks = own.blocks, .probe = !atomic});
    }
  }
  unreadWrites_ = 0;
}

void CheckAccount::zonesReset(uint64_t first, uint64_t end) {
  if (!onTrack_) {
    return;
  }
  leavePlain();
  ++now_;
  const BlockSpan zone{.first = first, .end = end};
  const auto concerns = [&](const BlockSpan& span) {
    return span.overlaps(zone) && (span.step == 1 || ((span.first ^ first) & 1) == 0);
  };
  readBacks_.eraseIf([&](const ReadBack& write) {
    const BlockSpan span = spanOf(write.lba, write.blocks);
    const bool given = !write.probe && concerns(span);
    if (given) {
      expectations_.giveUp(span);
    }
    return given;
  });
  expectations_.zonesReset(first, end);
}

void CheckAccount::invalidated(uint64_t first, uint64_t end) {
  if (onTrack_) {
    leavePlain();
    ++now_;
    expectations_.invalidated(first, end);
  }
}

}  // namespace corvane::host
