#include "host/explain/Sentences.h"

#include <algorithm>
#include <cstdio>
#include <span>

namespace corvane::host {
namespace {

std::string number(uint64_t value) { return std::to_string(value); }

std::string milliseconds(uint64_t us) {
  char text[32];
  std::snprintf(text, sizeof text, "%.3f ms", static_cast<double>(us) / 1000);
  return text;
}

std::string blocksText(const JournalEntry& command) {
  return command.blocks == 1 ? "LBA " + number(command.lba)
                             : "LBAs " + number(command.lba) + " to " + number(command.endLba() - 1);
}

const char* nounOf(CommandKind kind) {
  switch (kind) {
    case CommandKind::writeAtomic:
      return "atomic write";
    case CommandKind::writeSame:
      return "write-same";
    default:
      return commandKindName(kind);
  }
}

/// How long before the failing read something was issued.
std::string before(const JournalEntry& earlier, const Explanation& e) {
  if (!e.read || earlier.number >= e.read->number) {
    return {};
  }
  const uint64_t us = e.read->issuedUs - std::min(e.read->issuedUs, earlier.issuedUs);
  const uint64_t commands = e.read->number - earlier.number;
  return ", " + number(commands) + (commands == 1 ? " command and " : " commands and ") + milliseconds(us) +
         " before that " + nounOf(e.read->kind);
}

/// By what all outstanding commands were lost, the first time after this one was issued.
const char* lossText(const JournalEntry& command, const CommandJournal& journal) {
  for (const Incident& incident : journal.incidents()) {
    if (incident.afterCommand < command.number) {
      continue;
    }
    if (incident.what == Incident::What::connectionLost) {
      return "was lost with the connection to the drive";
    }
    if (incident.what == Incident::What::reset) {
      return "was lost in a reset";
    }
    if (incident.what == Incident::What::powerCut) {
      return "was lost in a power cut";
    }
  }
  return "was lost in a reset, a power cut or with the connection to the drive";
}

std::string endText(const JournalEntry& command, const CommandJournal& journal) {
  switch (command.end) {
    case JournalEntry::End::outstanding:
      return "is still outstanding";
    case JournalEntry::End::lost:
      return lossText(command, journal);
    case JournalEntry::End::finished:
      break;
  }
  char status[8];
  std::snprintf(status, sizeof status, "0x%02X", static_cast<unsigned>(command.status));
  return command.status == scsi_status::good ? "was acknowledged as good" : "ended with status " + std::string(status);
}

class Sentences {
 public:
  Sentences(const Explanation& e, const FindingEvidence& evidence) : e_(e), evidence_(evidence) {}

  std::vector<std::string> take() {
    where();
    saysOfItself();
    whatItIs();
    expectation();
    between();
    legal();
    around();
    again();
    suspects();
    return std::move(sentences_);
  }

 private:
  void say(std::string sentence) { sentences_.push_back(std::move(sentence)); }

  void where() {
    std::string text = e_.read ? "The " + commandText(*e_.read) + " over " + blocksText(*e_.read) : "The agent";
    const bool someBlock = e_.kind == FindingKind::writeSplice && e_.reread != Reread::failed;
    text += someBlock ? " met a block that could not be read" : " found LBA " + number(e_.lba) + " wrong";
    if (e_.difference) {
      text += ": " + number(e_.difference->bytes) + " of " + number(e_.driveBlock.size()) +
              " bytes differ, the first is byte " + number(e_.difference->first);
    }
    say(text + ".");
  }

  void saysOfItself() {
    if (!e_.observed || (e_.kind == FindingKind::oldData && isFromBefore())) {
      return;
    }
    if (e_.observed->zeros) {
      say("The block is all zeros and says nothing of itself.");
      return;
    }
    if (!evidence_.embedded) {
      say("The block says of itself: sector " + number(e_.observed->bucket) +
          " of the pool; this test stamps no LBA and no command id into its data.");
      return;
    }
    say("The block says of itself: LBA " + number(e_.observed->lba) + ", command id " + number(e_.observed->commandId) +
        ", sector " + number(e_.observed->bucket) + " of the pool.");
  }

  bool isFromBefore() const { return !e_.observedWrite && evidence_.journal->oldestNumber() == 1; }

  std::string writerText() const {
    if (!e_.observedWrite) {
      return e_.observed ? "command id " + number(e_.observed->commandId) +
                               ", which is older than the first command that is remembered"
                         : "nobody knows which command";
    }
    return "the " + commandText(*e_.observedWrite) + (e_.observedDrive ? "" : before(*e_.observedWrite, e_));
  }

  void whatItIs() {
    switch (e_.kind) {
      case FindingKind::oldData:
        say(isFromBefore() ? "It is nothing that this test wrote, so what was there before it, or what a zone reset or "
                             "an invalidation left."
                           : "It is old data of this LBA, written by " + writerText() + ".");
        break;
      case FindingKind::otherLba:
        say("It is data that belongs on LBA " + number(e_.observedLba) + ", written by " + writerText() + ".");
        break;
      case FindingKind::otherDrive:
        say("It is data of another drive, " + e_.observedDrive.value_or("") + ": LBA " + number(e_.observedLba) +
            " of that drive, written by " + writerText() + ".");
        break;
      case FindingKind::zeros:
        say("It is a block of zeros.");
        break;
      case FindingKind::torn:
        torn();
        break;
      case FindingKind::bitFlips:
        say("It is the right data but for " + number(e_.difference->bits) +
            (e_.difference->bits == 1 ? " flipped bit." : " flipped bits."));
        break;
      case FindingKind::protectionBytes:
        say("The data is right; " + number(e_.difference->bytes) + " of its protection bytes are not.");
        break;
      case FindingKind::noise:
        say("It is nothing that this test ever wrote.");
        break;
      case FindingKind::unreadable:
        say("The block cannot be read any more.");
        break;
      case FindingKind::writeSplice:
        say("A write that did not end well left the block neither old nor new: it cannot be read any more.");
        break;
      case FindingKind::atomicOrder:
        say("An atomic write shows only in part: within one of its segments this block is older than its neighbours.");
        break;
      case FindingKind::verifyAlarm:
        say("The verify says that the data differ, but the blocks hold what they have to hold when they are read.");
        break;
      case FindingKind::oldDataExpectedGone:
        say("The range had been declared invalid, and its old data is still there.");
        break;
      case FindingKind::unknown:
        say("What was kept of the block does not say what it is.");
        break;
    }
  }

  void torn() {
    const size_t at = e_.difference->first == 0 ? e_.difference->last + 1 : e_.difference->first;
    std::string text = "It is torn at byte " + number(at) + ": up to there it is of ";
    text += e_.observedWrite ? "the " + commandText(*e_.observedWrite) : "an unknown command";
    text += ", from there on ";
    if (e_.tailId) {
      text += "of the command with id " + number(*e_.tailId);
    } else {
      const bool zeros = isZero(std::span(e_.driveBlock).subspan(at));
      text += zeros ? "zeros" : "nothing that is remembered";
    }
    say(text + ".");
  }

  void expectation() {
    if (!e_.expectedWrite || e_.kind == FindingKind::oldDataExpectedGone) {
      return;
    }
    say("What decides the content is the " + commandText(*e_.expectedWrite) + " over " + blocksText(*e_.expectedWrite) +
        before(*e_.expectedWrite, e_) + "; it " + endText(*e_.expectedWrite, *evidence_.journal) + ".");
  }

  /// What may have taken an acknowledged write away, and is no command.
  void between() {
    if (!e_.expectedWrite || !e_.read) {
      return;
    }
    std::string text;
    addCount(text, Incident::What::connectionLost, "the connection to the drive was lost");
    addCount(text, Incident::What::reset, "the drive was reset");
    addCount(text, Incident::What::powerCut, "its power was cut");
    if (!text.empty()) {
      say("Between the two " + text + ".");
    }
  }

  void addCount(std::string& text, Incident::What what, const std::string& name) const {
    uint64_t count = 0;
    for (const Incident& incident : evidence_.journal->incidents()) {
      const bool inside = incident.afterCommand >= e_.expectedWrite->number && incident.afterCommand < e_.read->number;
      count += inside && incident.what == what ? 1 : 0;
    }
    if (count != 0) {
      text += (text.empty() ? "" : ", ") + name + (count == 1 ? " once" : " " + number(count) + " times");
    }
  }

  void legal() {
    if (e_.legal.size() == 1) {
      say("Only one outcome was legal: " + e_.legal.front().text + ".");
    } else if (!e_.legal.empty()) {
      std::string text = number(e_.legal.size()) + " outcomes were legal: ";
      for (size_t i = 0; i < e_.legal.size(); ++i) {
        text += (i == 0 ? "" : "; ") + e_.legal[i].text;
      }
      say(text + ".");
    }
  }

  void around() {
    if (!e_.expectedWrite) {
      return;
    }
    size_t blocks = 0;
    size_t right = 0;
    size_t old = 0;
    size_t zeros = 0;
    for (const NeighbourBlock& block : e_.neighbours) {
      if (!e_.expectedWrite->covers(block.lba) || block.state == NeighbourBlock::State::unknown) {
        continue;
      }
      ++blocks;
      right += block.state == NeighbourBlock::State::expected ? 1 : 0;
      old += block.state == NeighbourBlock::State::old ? 1 : 0;
      zeros += block.state == NeighbourBlock::State::zeros ? 1 : 0;
    }
    if (blocks > 1) {
      say("Of the " + number(blocks) + " blocks of that command whose content is known, " + number(right) +
          " are right after the test, " + number(old) + " hold old data, " + number(zeros) + " zeros, " +
          number(blocks - right - old - zeros) + " something else.");
    }
  }

  void again() {
    if (!e_.reread) {
      return;
    }
    switch (*e_.reread) {
      case Reread::same:
        say("Read again after the test, the block is still the same: it is so on the medium.");
        break;
      case Reread::asExpected:
        say("Read again after the test, the block is right: only that one look at it was wrong.");
        break;
      case Reread::different:
        say("Read again after the test, the block holds something else again.");
        break;
      case Reread::overwritten:
        say("A later command has changed the block, so that reading it again says nothing.");
        break;
      case Reread::failed:
        say("Read again after the test, the block cannot be read.");
        break;
    }
  }

  void suspects() {
    if (e_.suspects.empty()) {
      return;
    }
    std::string text = std::string("What fits best is ") + faultClassInfo(e_.suspects.front()).name;
    for (size_t i = 1; i < e_.suspects.size(); ++i) {
      text += (i == 1 ? "; it would look alike with " : ", ") + std::string(faultClassInfo(e_.suspects[i]).name);
    }
    say(text + ".");
  }

  const Explanation& e_;
  const FindingEvidence& evidence_;
  std::vector<std::string> sentences_;
};

}  // namespace

std::string commandText(const JournalEntry& command) {
  return std::string(nounOf(command.kind)) + " with command id " + number(command.commandId);
}

std::string contentText(const JournalEntry& write) {
  return (write.kind == CommandKind::trim ? "zeros, by the " : "the data of the ") + commandText(write);
}

std::vector<std::string> sentencesOf(const Explanation& explanation, const FindingEvidence& evidence) {
  return Sentences(explanation, evidence).take();
}

}  // namespace corvane::host
