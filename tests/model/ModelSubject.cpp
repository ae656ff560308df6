#include "tests/model/ModelSubject.h"

#include <cstdio>
#include <utility>

namespace refmodel {

namespace {

constexpr int miscompare = -1046;
constexpr int wrongOrder = -1063;
constexpr int noData = -1022;
constexpr int dataTooShort = -1057;
constexpr uint32_t unknownBlock = 0x80001;
constexpr uint32_t trailerBytes = 8;

std::vector<uint64_t> lbasOf(const vdl::BlockRun& run) {
  std::vector<uint64_t> lbas;
  for (uint64_t lba = run.first; lba < run.end; lba += run.step) {
    lbas.push_back(lba);
  }
  return lbas;
}

std::string lbaText(uint64_t lba) {
  char text[32];
  std::snprintf(text, sizeof text, "0x%016llX", static_cast<unsigned long long>(lba));
  return text;
}

std::string hexText(uint64_t value) {
  char text[32];
  std::snprintf(text, sizeof text, "%llx", static_cast<unsigned long long>(value));
  return text;
}

std::string differenceText(uint64_t lba, const Bytes& left, const Bytes& right) {
  size_t first = left.size();
  size_t count = 0;
  for (size_t i = left.size(); i-- > 0;) {
    if (left[i] != right[i]) {
      first = i;
      ++count;
    }
  }
  return "Miscompare Detected at LBA " + lbaText(lba) + ", first_offset = " + std::to_string(first) +
         ", num_bytes = " + std::to_string(count);
}

}  // namespace

Verdict ModelSubject::carryOut(const Action& action) {
  Verdict verdict;
  if (action.what == Action::What::write || action.what == Action::What::atomic) {
    writesInFlight_.insert(action.id);
  }
  if (action.landed) {
    writesInFlight_.erase(action.id);
  }
  table_.said.clear();
  verdict.status = tell(action);
  verdict.errors = table_.said;
  if (verdict.status == 0) {
    judgeComparable(verdict);
  }
  return verdict;
}

void ModelSubject::setData(uint64_t id, const Bytes& bytes, uint32_t blocks) {
  for (ReadData& read : waiting_) {
    if (read.id == id) {
      read.bytes = bytes;
      read.blocks = blocks;
    }
  }
}

int ModelSubject::tell(const Action& action) {
  const std::vector<uint64_t> lbas = lbasOf(action.run);
  switch (action.what) {
    case Action::What::write:
    case Action::What::atomic:
      return write(action);
    case Action::What::finish:
      for (const uint64_t lba : lbas) {
        table_.finishWrite(action.id, lba);
      }
      return 0;
    case Action::What::fail:
      for (size_t i = action.from; i < lbas.size(); ++i) {
        table_.failWrite(action.id, lbas[i]);
      }
      return 0;
    case Action::What::read:
      return read(action);
    case Action::What::endRead:
      return endRead(action.id, action.run, action.flag);
    case Action::What::giveData:
      waiting_.push_back(action.data);
      return 0;
    case Action::What::keepHashes:
      for (size_t i = 0; i < lbas.size(); ++i) {
        table_.saveHash(action.id, lbas[i], action.hashes[i], action.flag);
      }
      return 0;
    case Action::What::skip:
      for (const uint64_t lba : lbas) {
        if (const int status = table_.skipRead(lba); status != 0) {
          return status;
        }
      }
      return 0;
    case Action::What::drop:
      for (const uint64_t lba : lbas) {
        if (const int status = table_.dropHash(action.id, lba); status != 0) {
          return status;
        }
      }
      return 0;
    case Action::What::invalidate:
      table_.invalidate(action.run.first, action.run.end - 1, action.flag);
      return 0;
  }
  return 0;
}

int ModelSubject::write(const Action& action) {
  const std::vector<uint64_t> lbas = lbasOf(action.run);
  for (uint32_t i = 0; i < lbas.size(); ++i) {
    const uint32_t bucket = action.content.block + (action.content.nextBucketEach ? i : 0);
    vdl::EmbedData stamp = action.content.embed;
    stamp.lba = action.content.ownLbaEach ? lbas[i] : stamp.lba;
    if (action.what == Action::What::atomic) {
      table_.atomicWrite(action.id, lbas[i], bucket, stamp,
                         segmentOf(i, static_cast<uint32_t>(lbas.size()), action.bound));
    } else {
      table_.write(action.id, lbas[i], bucket, stamp);
    }
  }
  return 0;
}

int ModelSubject::read(const Action& action) {
  const std::vector<uint64_t> lbas = lbasOf(action.run);
  for (size_t i = 0; i < lbas.size(); ++i) {
    if (const int status = table_.issueRead(action.id, lbas[i], action.expects[i]); status != 0) {
      return status;
    }
  }
  return 0;
}

int ModelSubject::endRead(uint64_t id, const vdl::BlockRun& run, bool keep) {
  for (const uint64_t lba : lbasOf(run)) {
    if (const ModelPeek peek = table_.finishRead(id, lba, keep); peek.status != 0) {
      return peek.status;
    }
  }
  return 0;
}

void ModelSubject::judgeComparable(Verdict& verdict) {
  for (size_t i = 0; i < waiting_.size();) {
    std::vector<uint64_t> left;
    for (const uint64_t id : waiting_[i].overtaken) {
      if (writesInFlight_.count(id) == 1) {
        left.push_back(id);
      }
    }
    waiting_[i].overtaken = left;
    if (!left.empty()) {
      ++i;
      continue;
    }
    const ReadData read = waiting_[i];
    waiting_.erase(waiting_.begin() + static_cast<std::ptrdiff_t>(i));
    table_.said.clear();
    verdict.status = judge(read, verdict);
    verdict.errors += table_.said;
    if (verdict.status != 0) {
      verdict.log.push_back((*statusLine_)("doCompares", verdict.status));
      return;
    }
  }
}

int ModelSubject::judge(const ReadData& read, Verdict& verdict) {
  if (read.blocks == 0) {
    return 0;
  }
  const uint64_t end = read.lba + uint64_t{read.blocks} * read.step;
  ReadContext context(table_, read.lba, end, read.id);
  if (const int status = endRead(read.id, {read.lba, end, read.step}, false); status != 0) {
    return status;
  }
  return judgeBlocks(read, context, verdict);
}

int ModelSubject::judgeBlocks(const ReadData& read, ReadContext& context, Verdict& verdict) const {
  if (read.bytes.empty()) {
    verdict.log.emplace_back("Read Buffer == NULL");
    return noData;
  }
  const size_t sector = medium_->sector();
  const size_t stride = read.bytes.size() == read.length * (sector + trailerBytes) ? sector + trailerBytes : sector;
  bool undecided = false;
  for (uint32_t i = 0; i < read.blocks; ++i) {
    const size_t offset = i * stride;
    if (offset + sector > read.bytes.size()) {
      verdict.log.emplace_back("dataCompare() Read pointer: offset > buff size");
      return dataTooShort;
    }
    const auto from = read.bytes.begin() + static_cast<std::ptrdiff_t>(offset);
    const Bytes block(from, from + static_cast<std::ptrdiff_t>(sector));
    const uint64_t lba = read.lba + uint64_t{i} * read.step;
    if (const int status = judgeBlock(read, lba, block, context, verdict); status != 0) {
      return status;
    }
    undecided = undecided || context.peek(lba).content == 'A';
  }
  if (undecided) {
    if (const auto broken = context.brokenAt()) {
      return reportOrder(*broken, context, verdict);
    }
  }
  return 0;
}

int ModelSubject::judgeBlock(const ReadData& read, uint64_t lba, const Bytes& block, ReadContext& context,
                             Verdict& verdict) const {
  context.observe(lba, block);
  const ModelPeek expected = context.peek(lba);
  switch (expected.content) {
    case 'N':
    case 'A':
      return judgeContent(read, lba, block, expected, context, verdict);
    case 'H':
      return judgeHash(read, lba, block, expected, context, verdict);
    default:
      return 0;
  }
}

int ModelSubject::judgeContent(const ReadData& read, uint64_t lba, const Bytes& block, const ModelPeek& expected,
                               const ReadContext& context, Verdict& verdict) const {
  const Bytes reference = medium_->written(expected.block, {expected.stamped, expected.stampId, expected.stampLba});
  if (reference.empty()) {
    return 0;
  }
  const bool equal = block == reference;
  if (equal != expected.invalidated) {
    return 0;
  }
  verdict.log.push_back(equal ? "Data match on invalidated block at LBA " + lbaText(lba)
                              : differenceText(lba, block, reference));
  verdict.log.emplace_back("Could not dump CDB: cdb_size = 0");
  verdict.driveDump = block;
  verdict.referenceDump = reference;
  verdict.log.push_back((*statusLine_)("compareBlock", miscompare));
  verdict.traced = {lba, read.id, expected.block, observationOf(block).block_num, expected.invalidated};
  verdict.history = context.historyText(lba);
  return miscompare;
}

int ModelSubject::judgeHash(const ReadData& read, uint64_t lba, const Bytes& block, const ModelPeek& expected,
                            const ReadContext& context, Verdict& verdict) const {
  const uint64_t hash = hashOf(block);
  if (hash == expected.hash) {
    return 0;
  }
  verdict.output += "hash compare fail " + hexText(expected.hash) + " != " + hexText(hash) + "\n";
  verdict.traced = {lba, read.id, unknownBlock, unknownBlock, expected.invalidated};
  verdict.history = context.historyText(lba);
  return miscompare;
}

int ModelSubject::reportOrder(uint64_t lba, const ReadContext& context, Verdict& verdict) {
  verdict.errors += "atomic data ordering failure lba:0x" + hexText(lba) + "\n";
  verdict.traced = {lba, 0, unknownBlock, unknownBlock, false};
  verdict.history = "atomic data ordering failure\n";
  if (lba != 0) {
    verdict.history += context.historyText(lba - 1);
  }
  verdict.history += context.historyText(lba) + context.historyText(lba + 1);
  verdict.output += verdict.history + "\n";
  return wrongOrder;
}

}  // namespace refmodel
