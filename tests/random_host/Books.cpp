#include "Books.h"

#include <algorithm>

#include "Conditions.h"
#include "vdl/SenseParser.h"

namespace randomhost {

Books::Books(const vdl::Corvane::ConfigData& config, const vdl::DriveThread& thread,
             const vdl::Corvane::DriveData& agent)
    : config_(config), thread_(thread), agent_(agent) {}

void Books::complain(const std::string& text) {
  if (complaint_.empty()) {
    complaint_ = text;
  }
}

uint64_t Books::endOf(uint64_t lba, uint32_t length) const { return lba + static_cast<uint32_t>(length * stride()); }

std::vector<uint64_t> Books::blocksOf(uint64_t lba, uint32_t length) const {
  std::vector<uint64_t> blocks;
  const uint64_t end = endOf(lba, length);
  for (uint64_t x = lba; x < end; x += stride()) {
    blocks.push_back(x);
  }
  return blocks;
}

std::vector<uint64_t> Books::everyBlockOf(uint64_t lba, uint32_t length) {
  std::vector<uint64_t> blocks;
  for (uint64_t x = lba; x < lba + length; ++x) {
    blocks.push_back(x);
  }
  return blocks;
}

Books::Sense Books::senseOf(const Offer& offer) const {
  Sense sense;
  sense.hard = true;
  if (offer.deviceInterface != 0 || offer.sense.size() < 8) {
    return sense;
  }
  // Longer than any sense data, so that what is not there reads as zeros.
  std::vector<uint8_t> bytes = offer.sense;
  bytes.resize(300, 0);
  if (vdl::SenseParser::getKey(bytes.data(), sense.kcq) == 0) {
    sense.hard = sense.kcq.key != 1;
    if (sense.kcq.key == 3) {
      vdl::SenseParser::getValidBit(bytes.data(), &sense.valid);
    }
  }
  vdl::SenseParser::getCode(bytes.data(), sense.kcq);
  vdl::SenseParser::getQual(bytes.data(), sense.kcq);
  vdl::SenseParser::getUec(bytes.data(), sense.uec);
  if (sense.valid != 0) {
    uint8_t information[8] = {};
    vdl::SenseParser::getInformationBytes(bytes.data(), information);
    for (const uint8_t byte : information) {
      sense.information = sense.information << 8 | byte;
    }
  }
  return sense;
}

const Books::Entry& Books::expect(Type type, uint64_t lba, uint32_t length, uint64_t id, uint32_t tag) {
  static const Entry none{};
  if (next_ >= traced_->size()) {
    complain(std::string("no entry for ") + vdl::traceTypeName(type) + " of command " + std::to_string(id));
    return none;
  }
  const Entry& entry = (*traced_)[next_++];
  if (entry.type != type || entry.lba != lba || entry.xfer_len != length || entry.cmd_id != id || entry.tag != tag) {
    complain(std::string("traced ") + vdl::traceTypeName(entry.type) + " lba " + std::to_string(entry.lba) +
             " length " + std::to_string(entry.xfer_len) + " id " + std::to_string(entry.cmd_id) + " tag " +
             std::to_string(entry.tag) + " instead of " + vdl::traceTypeName(type) + " lba " + std::to_string(lba) +
             " length " + std::to_string(length) + " id " + std::to_string(id) + " tag " + std::to_string(tag));
  }
  return entry;
}

void Books::expectEnded(Type type, const Slot& slot, const Command& command, const Offer& offer, const Sense& sense) {
  const Entry& entry = expect(type, slot.lba, slot.length, command.id, offer.tag);
  if (entry.block != sense.uec || entry.kcq.key != sense.kcq.key || entry.kcq.code != sense.kcq.code ||
      entry.kcq.qual != sense.kcq.qual) {
    complain("the entry of command " + std::to_string(command.id) + " carries other sense data");
  }
  slots_[offer.tag].type = type;
}

void Books::startTest(int result, bool traced) {
  slots_ = {};
  hasTrace_ = traced;
  if (vdl::agent::configured(config_.writeAtomicCondition) && vdl::agent::configured(config_.writeCondition)) {
    skipGenOnList_ = false;
  }
  if (result == 0) {
    powerOn_ = thread_.timestampUs == 0 ? PowerOn::longAgo : PowerOn::inFuture;
  }
  firstExecute_ = true;
}

uint64_t Books::inFlight() const {
  return preReadSent_.size() + readSent_.size() + verifySent_.size() + writeSent_.size();
}

uint64_t Books::takeRefusals() {
  const auto lines = static_cast<uint64_t>(std::count(table_.said.begin(), table_.said.end(), '\n'));
  table_.said.clear();
  return lines;
}

std::string Books::execute(const Offer& offer, const Outcome& outcome) {
  complaint_.clear();
  traced_ = &outcome.traced;
  next_ = 0;
  conditions_ = offer.conditions;
  if (firstExecute_) {
    firstExecute_ = false;
    tagBuffers_ = thread_.queueDepth;
  }
  if (offer.powerWasCut) {
    if (!nextIs(Type::PowerToggleOn)) {
      complain("the power-on was not traced");
    }
    ++next_;
    powerOn_ = PowerOn::justNow;
  }
  if (offer.mutexFails) {
    return outcome.systemError ? complaint_ : "the range queue's exception was swallowed";
  }
  for (const vdl::LBARange& range : offer.zoneResets) {
    absorbZoneReset(range);
  }
  for (const vdl::LBARange& range : offer.invalidations) {
    table_.invalidate(range.first, range.end, false);
    expect(Type::InvalidateRange, range.first, 0, range.end, 0);
  }

  int result = absorbCompletion(offer);
  if (result == 0) {
    result = compareReads(outcome);
  }
  bool thrown = false;
  if (result == 0) {
    result = prepare(offer, outcome);
    thrown = outcome.outOfRange;
  }
  if (!thrown && (outcome.outOfRange || outcome.systemError)) {
    complain("an exception left the step");
  } else if (!thrown && outcome.result != result) {
    complain("the step returned " + std::to_string(outcome.result) + " instead of " + std::to_string(result));
  }
  if (next_ < traced_->size()) {
    complain(std::string("traced ") + vdl::traceTypeName((*traced_)[next_].type) + " for nothing");
  }
  if (outcome.conditions != conditions_) {
    complain("the conditions are " + std::to_string(outcome.conditions) + " instead of " + std::to_string(conditions_));
  }
  return complaint_;
}

void Books::absorbZoneReset(const vdl::LBARange& range) {
  const auto concerns = [&](const Command& write) {
    if (config_.useSkipCommands && (write.lba & 1) != (range.first & 1)) {
      return false;
    }
    return range.first < endOf(write.lba, write.length) && range.end > write.lba;
  };
  std::deque<Command> kept;
  for (const Command& write : writeFinished_) {
    if (write.splice || !concerns(write)) {
      kept.push_back(write);
      continue;
    }
    for (const uint64_t lba : blocksOf(write.lba, write.length)) {
      table_.skipRead(lba);
    }
  }
  writeFinished_ = kept;
  for (Command& write : writeSent_) {
    if (write.linked == 0 && concerns(write)) {
      write.readBack = false;
    }
  }
  table_.invalidate(range.first, range.end, true);
  expect(Type::ZoneReset, range.first, 0, range.end, 0);
}

bool Books::toggleIsDue() const {
  if (!vdl::agent::configured(config_.powerToggleCondition)) {
    return false;
  }
  return powerOn_ == PowerOn::longAgo || (powerOn_ == PowerOn::justNow && config_.powerToggleFreq == 0);
}

void Books::apply(const vdl::Condition& condition) {
  conditions_ = (condition.anyMask | condition.allMask) | (condition.replace ? 0 : conditions_ & ~condition.noneMask);
}

std::string Books::deviceReset(const std::vector<vdl::CommandTrace::TraceInfo>& traced) {
  complaint_.clear();
  traced_ = &traced;
  next_ = 0;
  resetDevice();
  if (next_ < traced.size()) {
    complain("the reset traced more than it lost");
  }
  return complaint_;
}

void Books::resetDevice() {
  const auto lost = [this](Type type, const Command& command) {
    if (hasTrace_) {
      expect(type, command.lba, command.length, command.id, command.tag);
      slots_[command.tag].type = type;
    }
  };
  for (const Command& preRead : preReadSent_) {
    lost(Type::ReadAborted, preRead);
  }
  for (const Command& verify : verifySent_) {
    lost(Type::VerifyAborted, verify);
    for (const uint64_t lba : everyBlockOf(verify.lba, verify.length)) {
      table_.finishRead(verify.id, lba, false);
    }
  }
  for (const Command& read : readSent_) {
    lost(Type::ReadAborted, read);
    for (const uint64_t lba : blocksOf(read.lba, read.length)) {
      table_.finishRead(read.id, lba, true);
    }
    Command again = read;
    again.id = 0;
    again.retries = 0;
    writeFinished_.push_front(again);
  }
  for (const Command& write : writeSent_) {
    lost(Type::WriteAborted, write);
    for (const uint64_t lba : blocksOf(write.lba, write.length)) {
      table_.failWrite(write.id, lba);
    }
    if (write.atomic || config_.writeSpliceDetection) {
      Command again = write;
      again.splice = !write.atomic;
      again.retries = 0;
      writeFinished_.push_back(again);
    }
  }
  preReadSent_.clear();
  verifySent_.clear();
  readSent_.clear();
  writeSent_.clear();
}

}  // namespace randomhost
