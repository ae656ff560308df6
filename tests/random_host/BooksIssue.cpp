// What the books know of the issue of commands.

#include <algorithm>

#include "Books.h"
#include "Conditions.h"
#include "vdl/Status.h"

namespace randomhost {

namespace {

using vdl::agent::ActiveConditions;
using vdl::agent::configured;

constexpr uint32_t noTag = 0xFFFFFFFF;
constexpr uint32_t unknownBlock = 0x80001;
constexpr uint32_t zeroBlock = 0xFF0000;

uint64_t bitsOf(const vdl::Condition& condition) { return condition.anyMask | condition.allMask; }

ActiveConditions activeOf(const vdl::Corvane::ConfigData& config, uint64_t state) {
  ActiveConditions active;
  active.read = (state & bitsOf(config.readCondition)) != 0;
  active.verify = (state & bitsOf(config.verifyCondition)) != 0;
  active.write = (state & bitsOf(config.writeCondition)) != 0;
  active.writeAtomic = (state & bitsOf(config.writeAtomicCondition)) != 0;
  active.writeSame = (state & bitsOf(config.writeSameCondition)) != 0;
  active.trim = (state & bitsOf(config.trimCondition)) != 0;
  return active;
}

}  // namespace

int Books::prepare(const Offer& offer, const Outcome& outcome) {
  for (const vdl::Condition* condition :
       {&config_.readCondition, &config_.verifyCondition, &config_.writeCondition, &config_.writeAtomicCondition,
        &config_.writeSameCondition, &config_.trimCondition, &config_.powerToggleCondition,
        &config_.syncCacheCondition}) {
    conditions_ &= ~bitsOf(*condition);
  }
  if (offer.nextTag == noTag) {
    return 0;
  }
  if (toggleIsDue()) {
    if (!configured(config_.syncCacheCondition) || syncDone_) {
      resetDevice();
      apply(config_.powerToggleCondition);
      if (!nextIs(Type::PowerToggleOff)) {
        complain("the power cut was not traced");
      }
      ++next_;
      return 0;
    }
    if (!syncIssued_) {
      syncIssued_ = true;
      apply(config_.syncCacheCondition);
      expect(Type::SyncIssued, 0, 0, 0, offer.nextTag);
      slots_[offer.nextTag] = Slot{0, 0, Type::SyncIssued};
      if (offer.deviceReset) {
        resetDevice();
      }
      return 0;
    }
  }
  if (offer.deviceReset) {
    resetDevice();
    return 0;
  }

  uint64_t waiting = writeFinished_.size();
  for (const Command& write : writeSent_) {
    waiting += write.readBack && write.linked == 0 ? 1 : 0;
  }
  // A read phase that only a draw decides is the agent's own.
  const bool drawn = waiting >= config_.minQueueSize && waiting < config_.maxQueueSize && config_.randomSelection;
  if (waiting < config_.minQueueSize) {
    readPhase_ = false;
  } else if (waiting >= config_.maxQueueSize) {
    readPhase_ = true;
  } else if (drawn) {
    readPhase_ = agent_.readPhase;
  }
  if (agent_.readPhase != readPhase_) {
    complain(readPhase_ ? "a write instead of a read" : "a read instead of a write");
  }
  if (readPhase_) {
    return issueRead(offer, outcome);
  }
  return activeOf(config_, offer.conditions).writeAtomic ? issueAtomicWrite(offer, outcome)
                                                         : issueWrite(offer, outcome);
}

int Books::issueWrite(const Offer& offer, const Outcome& outcome) {
  Command write;
  write.id = nextId_++;
  write.lba = offer.hostManaged ? offer.writeLba : offer.lba;
  write.length = offer.hostManaged ? offer.writeXferLength : offer.xferLength;
  write.tag = offer.nextTag;
  write.readBack = true;
  writeSent_.push_back(write);

  bool plain = configured(config_.writeCondition);
  bool same = configured(config_.writeSameCondition);
  bool trim = configured(config_.trimCondition);
  if (plain + same + trim > 1) {
    const ActiveConditions active = activeOf(config_, offer.conditions);
    plain = active.write;
    same = active.writeSame;
    trim = active.trim;
  }
  if (plain + same + trim != 1) {
    return vdl::status::incompatibleOptions;
  }
  apply(plain ? config_.writeCondition : same ? config_.writeSameCondition : config_.trimCondition);
  if (write.length > config_.bucketCount) {
    return vdl::status::bufferTooLarge;
  }
  if (!trim && write.tag >= tagBuffers_) {
    if (!outcome.outOfRange) {
      complain("a write on a tag that the drive does not have");
    }
    return 0;
  }
  const Type type = plain ? Type::WriteIssued : same ? Type::WriteSameIssued : Type::TrimIssued;
  const uint32_t bucket = expect(type, write.lba, write.length, write.id, write.tag).block;
  slots_[write.tag] = Slot{write.lba, write.length, type};
  const uint32_t choices = std::max(config_.bucketCount - write.length, 1U);
  if (!trim && bucket >= choices) {
    complain("bucket " + std::to_string(bucket) + " leaves no room for the command");
  }
  uint32_t block = trim ? zeroBlock : bucket;
  for (const uint64_t lba : blocksOf(write.lba, write.length)) {
    table_.write(write.id, lba, block, vdl::EmbedData{!trim && config_.embedData, write.id, same ? write.lba : lba});
    block += plain ? 1 : 0;
  }
  return 0;
}

int Books::issueAtomicWrite(const Offer& offer, const Outcome& outcome) {
  Command write;
  write.lba = offer.lba;
  write.length = offer.xferLength;
  write.bound = offer.atomicBound;
  write.tag = offer.nextTag;
  write.readBack = true;
  write.atomic = true;
  uint64_t toDrop = 0;
  if (!table_.known(write.lba, write.lba + write.length)) {
    const auto unclaimed = [](const Command& preRead) { return preRead.linked == 0; };
    const auto finished = std::find_if(preReadFinished_.begin(), preReadFinished_.end(), unclaimed);
    const auto sent = std::find_if(preReadSent_.begin(), preReadSent_.end(), unclaimed);
    if (finished == preReadFinished_.end() && sent == preReadSent_.end()) {
      Command preRead = write;
      preRead.id = nextId_++;
      preRead.atomic = false;
      expect(Type::PreReadIssued, preRead.lba, preRead.length, preRead.id, preRead.tag);
      slots_[preRead.tag] = Slot{preRead.lba, preRead.length, Type::PreReadIssued};
      preReadSent_.push_back(preRead);
      apply(config_.readCondition);
      return 0;
    }
    const Command& base = finished != preReadFinished_.end() ? *finished : *sent;
    write.lba = base.lba;
    write.length = base.length;
    write.bound = base.bound;
    if (finished != preReadFinished_.end()) {
      toDrop = finished->id;
      preReadFinished_.erase(finished);
    } else {
      sent->linked = nextId_;
    }
  }
  write.id = nextId_++;
  writeSent_.push_back(write);
  apply(config_.writeAtomicCondition);
  if (write.length > config_.bucketCount) {
    return vdl::status::bufferTooLarge;
  }
  if (write.tag >= tagBuffers_) {
    if (!outcome.outOfRange) {
      complain("an atomic write on a tag that the drive does not have");
    }
    return 0;
  }
  const uint32_t bucket = expect(Type::WriteAtomicIssued, write.lba, write.length, write.id, write.tag).block;
  slots_[write.tag] = Slot{write.lba, write.length, Type::WriteAtomicIssued};
  return recordAtomicWrite(write, bucket, toDrop);
}

int Books::recordAtomicWrite(const Command& write, uint32_t bucket, uint64_t preReadToDrop) {
  for (const uint64_t lba : blocksOf(write.lba, write.length)) {
    // Where the block lies in its segment says nothing about claims.
    table_.atomicWrite(write.id, lba, bucket++, vdl::EmbedData{true, write.id, lba}, vdl::AtomicSegment{});
    if (preReadToDrop != 0) {
      if (const int result = table_.dropHash(preReadToDrop, lba); result != 0) {
        return result;
      }
    }
  }
  return 0;
}

int Books::issueRead(const Offer& offer, const Outcome& outcome) {
  const uint64_t id = nextId_++;
  Command write;
  bool found = false;
  if (!writeFinished_.empty()) {
    write = writeFinished_.front();
    writeFinished_.pop_front();
    found = true;
  } else {
    for (Command& candidate : writeSent_) {
      if (candidate.readBack && candidate.linked == 0) {
        candidate.linked = id;
        write = candidate;
        write.splice = false;
        write.retries = 0;
        found = true;
        break;
      }
    }
  }
  const ActiveConditions active = activeOf(config_, offer.conditions);
  bool read = configured(config_.readCondition);
  bool verify = configured(config_.verifyCondition);
  if (read && verify) {
    read = active.read;
    verify = active.verify;
  }
  if (read == verify) {
    return vdl::status::incompatibleOptions;
  }
  if (!found) {
    return vdl::status::noRecord;
  }
  return read || write.splice ? issueRead(offer, write, id) : issueVerify(offer, outcome, write, id);
}

/// Where a read may slide to: it still meets the write, within the test's range where that can be.
bool Books::slidAsAllowed(const Offer& offer, const Command& write, const Entry& entry) const {
  if (entry.xfer_len == write.length && entry.lba == write.lba) {
    return true;
  }
  if (!config_.slideReads || write.splice || entry.xfer_len != offer.xferLength) {
    return false;
  }
  if (entry.lba == write.lba) {
    return true;
  }
  const uint64_t n = entry.xfer_len;
  uint64_t lowest = write.lba + stride() - stride() * n;
  if (lowest > write.lba || lowest < offer.minLba) {
    lowest = offer.minLba;
  }
  uint64_t highest = write.lba - stride() + stride() * write.length;
  if (highest > offer.maxLba) {
    highest = offer.maxLba + stride() - stride() * n;
  }
  if (stride() == 2) {
    highest -= (highest & 1) != (write.lba & 1) ? 1 : 0;
    lowest += (lowest & 1) != (write.lba & 1) ? 1 : 0;
  }
  const uint64_t from = write.length > n ? write.lba : lowest;
  const uint64_t to = write.length < n ? write.lba : highest;
  return entry.lba >= from && entry.lba <= to && (entry.lba - from) % stride() == 0;
}

int Books::issueRead(const Offer& offer, const Command& write, uint64_t id) {
  apply(config_.readCondition);
  Command read = write;
  read.id = id;
  read.linked = 0;
  read.tag = offer.nextTag;
  if (nextIs(Type::ReadIssued)) {
    const Entry& entry = (*traced_)[next_];
    if (!slidAsAllowed(offer, write, entry)) {
      complain("a read slid to LBA " + std::to_string(entry.lba) + ", length " + std::to_string(entry.xfer_len));
    }
    read.lba = entry.lba;
    read.length = entry.xfer_len;
  }
  expect(Type::ReadIssued, read.lba, read.length, id, read.tag);
  slots_[read.tag] = Slot{read.lba, read.length, Type::ReadIssued};
  readSent_.push_back(read);
  const uint64_t writeEnd = endOf(write.lba, write.length);
  const uint64_t readEnd = endOf(read.lba, read.length);
  for (uint64_t lba = std::min(write.lba, read.lba); lba < std::max(writeEnd, readEnd); lba += stride()) {
    const bool inside = lba >= read.lba && lba < readEnd;
    const bool owed = lba >= write.lba && lba < writeEnd;
    const int result = inside ? table_.issueRead(id, lba, owed) : table_.skipRead(lba);
    if (result != 0) {
      return result;
    }
  }
  return 0;
}

int Books::issueVerify(const Offer& offer, const Outcome& outcome, const Command& write, uint64_t id) {
  Command verify = write;
  verify.id = id;
  verify.linked = 0;
  verify.tag = offer.nextTag;
  verify.expectMiscompare = false;
  const std::vector<uint64_t> blocks = everyBlockOf(write.lba, write.length);
  size_t first = 0;
  while (first < blocks.size() && table_.peek(blocks[first]).block == unknownBlock) {
    ++first;
  }
  if (first == blocks.size()) {
    verify.length = std::max(write.length, 1U);
    verify.expectMiscompare = true;
  } else {
    size_t end = first;
    for (; end < blocks.size(); ++end) {
      const modeltest::ModelPeek peek = table_.peek(blocks[end]);
      verify.expectMiscompare = verify.expectMiscompare || peek.invalidated;
      if (peek.block == unknownBlock) {
        break;
      }
    }
    verify.lba = blocks[first];
    verify.length = static_cast<uint32_t>(end - first);
  }
  apply(config_.verifyCondition);
  if (verify.tag >= tagBuffers_) {
    if (!outcome.outOfRange) {
      complain("a verify on a tag that the drive does not have");
    }
    return 0;
  }
  expect(Type::VerifyIssued, verify.lba, verify.length, id, verify.tag);
  slots_[verify.tag] = Slot{verify.lba, verify.length, Type::VerifyIssued};
  verifySent_.push_back(verify);
  for (const uint64_t lba : blocks) {
    const bool inside = lba >= verify.lba && lba < verify.lba + verify.length;
    const int result = inside ? table_.issueRead(id, lba, true) : table_.skipRead(lba);
    if (result != 0) {
      return result;
    }
  }
  return 0;
}

}  // namespace randomhost
