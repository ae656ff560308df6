// What the books know of the ends of commands.

#include <algorithm>
#include <array>

#include "Books.h"
#include "vdl/Status.h"

namespace randomhost {

namespace {

constexpr uint32_t noStatus = 0xFFFFFFFF;
constexpr uint32_t aborted = 64;
constexpr uint32_t checkCondition = 2;
constexpr uint32_t unknownBlock = 0x80001;

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

}  // namespace randomhost
