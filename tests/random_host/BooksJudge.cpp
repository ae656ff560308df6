// What the books know of the data of reads.

#include <algorithm>

#include "Books.h"
#include "vdl/Status.h"

namespace randomhost {

namespace {

constexpr uint32_t zeroBlock = 0xFF0000;

}  // namespace

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

}  // namespace randomhost
