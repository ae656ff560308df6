#include "Books.h"

#include <algorithm>

#include "Conditions.h"
#include "vdl/SenseParser.h"
#include "vdl/Status.h"

namespace randomhost {

namespace {

constexpr uint32_t noStatus = 0xFFFFFFFF;
constexpr uint32_t aborted = 64;
constexpr uint32_t checkCondition = 2;
constexpr uint32_t unknownBlock = 0x80001;
constexpr uint32_t zeroBlock = 0xFF0000;

/// The first command of a tag, taken out of its list.
template <typename List>
bool take(List& list, uint32_t tag, typename List::value_type& out) {
  for (size_t i = 0; i < list.size(); ++i) {
    if (list[i].tag == tag) {
      out = list[i];
      list.erase(list.begin() + static_cast<std::ptrdiff_t>(i));
      return true;
    }
  }
  return false;
}

}  // namespace

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

int Books::absorbCompletion(const Offer& offer) {
  syncDone_ = false;
  const Slot slot = offer.tag < slots_.size() ? slots_[offer.tag] : Slot{};
  if (offer.status == noStatus || miscompareSeen_) {
    return 0;
  }
  switch (slot.type) {
    case Type::WriteIssued:
    case Type::WriteAtomicIssued:
    case Type::WriteSameIssued:
    case Type::TrimIssued:
      return finishWrite(offer, slot);
    case Type::PreReadIssued:
      return finishPreRead(offer, slot);
    case Type::ReadIssued:
      return finishRead(offer, slot);
    case Type::VerifyIssued:
      return finishVerify(offer, slot);
    case Type::SyncIssued: {
      syncIssued_ = false;
      syncDone_ = offer.status == 0;
      const Sense sense = offer.status == 0 ? Sense{} : senseOf(offer);
      expectEnded(Type::SyncFinished, Slot{}, Command{}, offer, sense);
      return 0;
    }
    default:
      return 0;
  }
}

int Books::finishWrite(const Offer& offer, const Slot& slot) {
  Command write;
  if (!take(writeSent_, offer.tag, write)) {
    return vdl::status::noRecord;
  }
  const std::vector<uint64_t> blocks = blocksOf(write.lba, write.length);
  bool readBack = write.readBack;
  bool splice = false;
  const Sense sense = offer.status == 0 || offer.status == aborted ? Sense{} : senseOf(offer);
  if (offer.status == aborted) {
    for (const uint64_t lba : blocks) {
      table_.failWrite(write.id, lba);
    }
    readBack = write.atomic || config_.writeSpliceDetection;
    splice = !write.atomic && config_.writeSpliceDetection;
    expectEnded(Type::WriteAborted, slot, write, offer, Sense{});
  } else if (sense.hard) {
    const uint64_t first = sense.valid != 0 ? sense.information : slot.lba;
    for (const uint64_t lba :
         everyBlockOf(write.lba, static_cast<uint32_t>(endOf(write.lba, write.length) - write.lba))) {
      if (lba >= first && (lba - first) % stride() == 0) {
        table_.failWrite(write.id, lba);
      }
    }
    splice = !write.atomic && config_.writeSpliceDetection && sense.kcq.key != 3;
    readBack = write.atomic || splice;
    expectEnded(Type::WriteFinished, slot, write, offer, sense);
  } else {
    for (const uint64_t lba : blocks) {
      table_.finishWrite(write.id, lba);
    }
    expectEnded(Type::WriteFinished, slot, write, offer, sense);
  }
  if (write.linked != 0) {
    for (Command& read : readSent_) {
      read.splice = read.splice || (splice && read.id == write.linked);
    }
    return 0;
  }
  if (readBack) {
    Command finished = write;
    finished.splice = splice;
    finished.retries = 0;
    writeFinished_.push_back(finished);
    return 0;
  }
  for (const uint64_t lba : blocks) {
    if (const int result = table_.skipRead(lba); result != 0) {
      return result;
    }
  }
  return 0;
}

int Books::finishPreRead(const Offer& offer, const Slot& slot) {
  Command preRead;
  if (!take(preReadSent_, offer.tag, preRead)) {
    return vdl::status::noRecord;
  }
  if (offer.status == aborted) {
    expectEnded(Type::ReadAborted, slot, preRead, offer, Sense{});
    return 0;
  }
  const Sense sense = offer.status == 0 ? Sense{} : senseOf(offer);
  expectEnded(Type::ReadFinished, slot, preRead, offer, sense);
  if (sense.hard) {
    return 0;
  }
  const uint64_t end = sense.valid != 0 ? sense.information : endOf(preRead.lba, preRead.length);
  const uint64_t sector = thread_.blockSize + (thread_.protectionEnabled ? thread_.protectionBytes : 0);
  const uint64_t held = offer.dataShown ? offer.data.size() / sector : 0;
  uint64_t lba = preRead.lba;
  for (uint64_t i = 0; i < held && lba < end; ++i, lba += stride()) {
    table_.saveHash(preRead.id, lba, 0, preRead.linked == 0);
  }
  if (preRead.linked == 0) {
    preReadFinished_.push_back(preRead);
  }
  return offer.dataShown ? 0 : static_cast<int>(vdl::status::bufferTooLarge);
}

int Books::finishRead(const Offer& offer, const Slot& slot) {
  Command read;
  if (!take(readSent_, offer.tag, read)) {
    return vdl::status::noRecord;
  }
  const std::vector<uint64_t> blocks = blocksOf(read.lba, read.length);
  const auto finishAll = [&] {
    for (const uint64_t lba : blocks) {
      if (const int result = table_.finishRead(read.id, lba, false).status; result != 0) {
        return result;
      }
    }
    return 0;
  };
  if (offer.status == aborted) {
    for (const uint64_t lba : blocks) {
      table_.finishRead(read.id, lba, false);
    }
    expectEnded(Type::ReadAborted, slot, read, offer, Sense{});
    if (read.splice && read.retries == 0) {
      Command again = read;
      again.id = 0;
      again.retries = 1;
      writeFinished_.push_front(again);
    }
    return 0;
  }
  const Sense sense = offer.status == 0 ? Sense{} : senseOf(offer);
  expectEnded(Type::ReadFinished, slot, read, offer, sense);
  if (sense.hard) {
    const std::array<uint16_t, 4> noSplice = {0xF7C3, 0xF815, 0xF510, 0xF827};
    if (read.splice && std::count(noSplice.begin(), noSplice.end(), sense.uec) == 0) {
      expect(Type::WriteSplice, slot.lba, slot.length, read.id, offer.tag);
      failureSeen_ = true;
      return vdl::status::writeSplice;
    }
    return finishAll();
  }
  if (read.splice || !offer.readDataIsValid) {
    return finishAll();
  }
  return keepRead(offer, read, sense);
}

int Books::keepRead(const Offer& offer, const Command& read, const Sense& sense) {
  KeptRead kept{read.id, read.lba, read.length, 0, stride(), {}, offer.data};
  const uint64_t end = endOf(read.lba, read.length);
  for (const Command& write : writeSent_) {
    const bool sameBlocks = !config_.useSkipCommands || (write.lba & 1) == (read.lba & 1);
    if (write.id < read.id && sameBlocks && read.lba < endOf(write.lba, write.length) && write.lba < end) {
      kept.pending.push_back(write.id);
      expect(Type::RecvOutOfOrder, write.id, 0, read.id, offer.tag);
      failureSeen_ = true;
    }
  }
  int result = offer.dataShown ? 0 : static_cast<int>(vdl::status::bufferTooLarge);
  const uint64_t limit = sense.valid != 0 ? sense.information : end;
  bool refused = false;
  for (const uint64_t lba : blocksOf(read.lba, read.length)) {
    if (lba < limit) {
      ++kept.count;
    } else if (!refused) {
      const int ended = table_.finishRead(read.id, lba, false).status;
      refused = ended != 0;
      result = refused ? ended : result;
    }
  }
  if (result == 0) {
    keptReads_.push_back(kept);
  }
  return result;
}

int Books::finishVerify(const Offer& offer, const Slot& slot) {
  Command verify;
  if (!take(verifySent_, offer.tag, verify)) {
    return vdl::status::noRecord;
  }
  bool mayMiscompare = false;
  bool expected = verify.expectMiscompare;
  int tableResult = 0;
  for (const uint64_t lba : everyBlockOf(verify.lba, verify.length)) {
    const modeltest::ModelPeek peek = table_.finishRead(verify.id, lba, false);
    tableResult = peek.status;
    mayMiscompare = mayMiscompare || peek.block == unknownBlock || peek.content == 'A';
    expected = expected || peek.invalidated;
    if (tableResult != 0) {
      break;
    }
  }
  if (offer.status == aborted) {
    expectEnded(Type::VerifyAborted, slot, verify, offer, Sense{});
    return 0;
  }
  const Sense sense = offer.status == checkCondition ? senseOf(offer) : Sense{};
  expectEnded(Type::VerifyFinished, slot, verify, offer, sense);
  const bool reported = sense.hard && sense.kcq.key == 0x0E && sense.kcq.code == 0x1D && sense.kcq.qual == 0;
  return judgeVerify(verify, mayMiscompare, expected, reported, tableResult);
}

int Books::judgeVerify(const Command& verify, bool mayMiscompare, bool expected, bool reported, int tableResult) {
  const bool unexpected = reported && !mayMiscompare;
  const bool missing = !reported && expected;
  if (!unexpected && !missing) {
    return tableResult;
  }
  const Entry& entry = expect(Type::Miscompare, verify.lba, 0, verify.id, 0);
  if ((entry.flag != 0) != expected) {
    complain("the miscompare of a verify carries the wrong flag");
  }
  miscompareSeen_ = true;
  return vdl::status::miscompare;
}

int Books::compareReads(const Outcome& outcome) {
  const auto stillKept = [&](const KeptRead& own) {
    return std::any_of(agent_.comparableReads.begin(), agent_.comparableReads.end(),
                       [&own](const auto& read) { return read.cmdId == own.id; });
  };
  const auto inFlight = [&](uint64_t id) {
    return std::any_of(writeSent_.begin(), writeSent_.end(), [id](const Command& write) { return write.id == id; });
  };
  for (size_t i = 0; i < keptReads_.size();) {
    std::erase_if(keptReads_[i].pending, [&](uint64_t id) { return !inFlight(id); });
    if (!keptReads_[i].pending.empty()) {
      ++i;
      continue;
    }
    const KeptRead read = keptReads_[i];
    if (stillKept(read)) {
      complain("read " + std::to_string(read.id) + " is still kept, though it waits for nothing");
    }
    keptReads_.erase(keptReads_.begin() + static_cast<std::ptrdiff_t>(i));
    const Verdict verdict = judge(read);
    for (uint32_t block = 0; block < read.count; ++block) {
      if (const int ended = table_.finishRead(read.id, read.lba + block * read.step, false).status; ended != 0) {
        return ended;
      }
    }
    // A failure ends the walk: it is of the last read that is gone.
    const bool last = std::all_of(keptReads_.begin() + static_cast<std::ptrdiff_t>(i), keptReads_.end(), stillKept);
    int result = 0;
    if (last && nextIs(Type::Miscompare)) {
      ++next_;
      miscompareSeen_ = true;
      result = outcome.result == vdl::status::atomicOrder ? vdl::status::atomicOrder : vdl::status::miscompare;
    } else if (last && outcome.result == vdl::status::pointerBeyondBuffer) {
      result = vdl::status::pointerBeyondBuffer;
    }
    if (const std::string wrong = checkVerdict(verdict, result); !wrong.empty()) {
      complain("read " + std::to_string(read.id) + wrong);
    }
    if (result != 0) {
      return result;
    }
  }
  return 0;
}

std::string Books::checkVerdict(Verdict verdict, int result) const {
  switch (verdict) {
    case Verdict::right:
      return result == 0 ? "" : " has the right data, and was found wrong";
    case Verdict::wrong:
      return result == vdl::status::miscompare ? "" : " has wrong data, and was found right";
    case Verdict::tooShort:
      return result == vdl::status::pointerBeyondBuffer ? "" : " has too little data, and nobody said so";
    case Verdict::open:
      break;
  }
  return {};
}

Books::Verdict Books::judge(const KeptRead& read) const {
  const uint64_t sector = thread_.blockSize + (thread_.protectionEnabled ? thread_.protectionBytes : 0);
  const uint64_t unit = read.data.size() == read.length * (sector + 8) ? sector + 8 : sector;
  for (uint64_t i = 0; i < read.count; ++i) {
    if (i * unit + sector > read.data.size()) {
      return Verdict::tooShort;
    }
    const Verdict verdict = judgeBlock(read, read.lba + i * read.step, read.data.data() + i * unit);
    if (verdict != Verdict::right) {
      return verdict;
    }
  }
  return Verdict::right;
}

Books::Verdict Books::judgeBlock(const KeptRead& read, uint64_t lba, const uint8_t* block) const {
  if (!table_.has(lba)) {
    return Verdict::open;
  }
  const modeltest::ModelRecord& record = table_.records.at(lba);
  const auto wait = std::find_if(record.waits.begin(), record.waits.end(),
                                 [&](const modeltest::ModelWait& candidate) { return candidate.id == read.id; });
  if (wait == record.waits.end()) {
    return Verdict::open;
  }
  const modeltest::ModelEvent& event = record.events[modeltest::Model::position(record, wait->serialOfHead)];
  if (event.kind == 'M' || event.content == 'A' || event.content == 'H') {
    return Verdict::open;
  }
  const uint64_t sector = thread_.blockSize + (thread_.protectionEnabled ? thread_.protectionBytes : 0);
  std::vector<uint8_t> expected(sector, 0);
  if (event.content == 'U' || (event.block != zeroBlock && event.block >= config_.bucketCount)) {
    return Verdict::right;  // nothing is known of it
  }
  if (event.block != zeroBlock) {
    const uint8_t* bucket = agent_.buckets + event.block * sector;
    expected.assign(bucket, bucket + sector);
  }
  if (event.stamped) {
    uint64_t bytes = 0;
    while (bytes < 8 && event.stampId >> (8 * bytes) != 0) {
      ++bytes;
    }
    for (uint64_t i = 0; i < 8; ++i) {
      expected[8 + i] = static_cast<uint8_t>(event.stampLba >> (56 - 8 * i));
    }
    expected[16] = static_cast<uint8_t>(bytes);
    for (uint64_t i = 0; i < bytes; ++i) {
      expected[17 + i] = static_cast<uint8_t>(event.stampId >> (8 * (bytes - 1 - i)));
    }
  }
  return std::equal(expected.begin(), expected.end(), block) ? Verdict::right : Verdict::wrong;
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
