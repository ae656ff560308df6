#include "host/run/CheckAccount.h"

// The ways of a test in which nothing out of the ordinary has happened, which is nearly every test of a drive that is
// sound. They cost no look at single blocks.

namespace corvane::host {

bool CheckAccount::issuedPlainly(const DriveCommand& command, Origin origin) {
  switch (command.kind) {
    case CommandKind::write:
    case CommandKind::writeSame:
    case CommandKind::trim:
      begin(command).wantsReadBack = true;
      nextChoice();
      ++unreadWrites_;
      return true;
    case CommandKind::read:
    case CommandKind::verify:
      break;
    default:
      return false;
  }
  const std::optional<ReadBack> write = nextReadBack();
  if (origin.mayBePreRead || !write || write->lba != command.lba || write->blocks != command.blocks) {
    return false;
  }
  begin(command);
  nextChoice();
  takeReadBack(command.tag);
  return true;
}

bool CheckAccount::completedPlainly(const DriveCommand& command, const DriveCompletion& completion,
                                    bool dataDelivered) {
  const bool brings = command.kind == CommandKind::read || command.kind == CommandKind::verify;
  if ((command.kind == CommandKind::read && !dataDelivered) || !endingOf(completion, rules_.readsSense).good()) {
    return false;
  }
  Outstanding& own = outstanding_[command.tag];
  own.live = false;
  ++now_;
  if (brings) {
    countAll(command, {.outcomes = 1});
  } else {
    followUp(own, {});
  }
  return true;
}

void CheckAccount::leavePlain() {
  if (!plain_) {
    return;
  }
  plain_ = false;
  // Time 0: before every command that is outstanding.
  const auto expectWritten = [this](const BlockSpan& span) {
    expectations_.writeIssued(span, true, 0);
    expectations_.writeEnded(span, 0, std::nullopt);
  };
  for (size_t i = 0; i < readBacks_.size(); ++i) {
    expectWritten(spanOf(readBacks_[i].lba, readBacks_[i].blocks));
  }
  const std::vector<uint32_t> live = liveInOrder();
  std::vector<bool> ofLiveWrite(outstanding_.size());
  for (const uint32_t tag : live) {
    if (outstanding_[tag].linkedRead != noTag) {
      ofLiveWrite[outstanding_[tag].linkedRead] = true;
    }
  }
  for (const uint32_t tag : live) {
    const Outstanding& own = outstanding_[tag];
    if (!own.wantsReadBack && !ofLiveWrite[tag]) {
      expectWritten(own.span);
      expectations_.readBackIssued(own.span, own.span, own.issued);
    }
  }
  for (const uint32_t tag : live) {
    const Outstanding& own = outstanding_[tag];
    if (own.wantsReadBack) {
      expectations_.writeIssued(own.span, true, own.issued);
      if (own.linkedRead != noTag) {
        expectations_.readBackIssued(own.span, own.span, own.issued);
      }
    }
  }
}

}  // namespace corvane::host
