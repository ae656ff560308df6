#include "tests/model/AgentSubject.h"

#include <malloc.h>

#include <algorithm>
#include <memory>
#include <utility>

#include "Compare.h"

namespace refmodel {

namespace {

constexpr uint32_t someTag = 3;

template <typename Operation>
int eachBlock(const vdl::BlockRun& run, Operation operation) {
  uint32_t block = 0;
  for (uint64_t lba = run.first; lba < run.end; lba += run.step) {
    if (const int status = operation(lba, block++); status != 0) {
      return status;
    }
  }
  return 0;
}

/// Calls `operation(run, expects)` for the longest runs of blocks that all pay a reference off, or none does.
template <typename Operation>
int eachExpectation(const Action& action, Operation operation) {
  const std::vector<bool>& expects = action.expects;
  for (size_t from = 0; from < expects.size();) {
    size_t end = from;
    while (end < expects.size() && expects[end] == expects[from]) {
      ++end;
    }
    const uint32_t step = action.run.step;
    const vdl::BlockRun run{action.run.first + from * step, action.run.first + (end - 1) * step + 1, step};
    if (const int status = operation(run, expects[from]); status != 0) {
      return status;
    }
    from = end;
  }
  return 0;
}

Bytes bytesOf(const vdl::Buffer& buffer) { return {buffer.data, buffer.data + buffer.size}; }

}  // namespace

AgentSubject::AgentSubject(Way way, StandardStreams& streams) : way_(way), streams_(streams) {
  // A table begins with chunks of a mebibyte, and there are millions of tables: what one has freed is for the next one.
  mallopt(M_MMAP_THRESHOLD, 1 << 25);
  mallopt(M_TRIM_THRESHOLD, 1 << 27);
  bench_.start();
  restart();
}

void AgentSubject::restart() {
  vdl::agent::DriveData& data = bench_.data();
  std::destroy_at(&data.atomicHash);
  std::construct_at(&data.atomicHash);
  data.writeSent.clear();
  data.spareReads.splice(data.spareReads.end(), data.comparableReads);
  data.miscompareSeen = false;
  data.driveCompareData->size = 0;
  data.referenceCompareData->size = 0;
  bench_.trace().setHistory({});
  traced_ = bench_.trace().count();
  waiting_.clear();
  inFlight_.clear();
}

Medium AgentSubject::medium() {
  const uint32_t sector = bench_.sectorBytes();
  const uint8_t* pool = bench_.data().buckets;
  return {Bytes(pool, pool + size_t{sector} * bench_.config().bucketCount), sector};
}

StatusLine AgentSubject::statusLine() {
  return [this](const char* operation, int status) { return bench_.failure(operation, status).text; };
}

Verdict AgentSubject::carryOut(const Action& action) {
  Verdict verdict;
  verdict.status = repeat(action);
  look(verdict);
  return verdict;
}

int AgentSubject::repeat(const Action& action) {
  noteWrite(action);
  int status = tell(action);
  if (status == 0) {
    status = way_ == Way::ofRuns ? judgeInTheStep() : judgeByHistory();
  }
  std::fill(given_.begin(), given_.end(), 0xEE);
  return status;
}

void AgentSubject::noteWrite(const Action& action) {
  auto& sent = bench_.data().writeSent;
  if (action.what == Action::What::write || action.what == Action::What::atomic) {
    sent.push_back({action.id, 0, action.run.first, static_cast<uint32_t>(action.run.count()), someTag, 1, 0});
    inFlight_.push_back(action.id);
  }
  if (action.landed) {
    sent.eraseIf([&action](const auto& write) { return write.cmdId == action.id; });
    std::erase(inFlight_, action.id);
  }
}

int AgentSubject::tell(const Action& action) {
  if (action.what == Action::What::giveData) {
    take(action.data);
    return 0;
  }
  if (action.what == Action::What::invalidate) {
    const auto method = action.flag ? vdl::AtomicHash::InvalidateReplace : vdl::AtomicHash::InvalidateKeepPrior;
    table().invalidate(action.run.first, action.run.end - 1, method);
    return 0;
  }
  return way_ == Way::ofRuns ? tellOfRuns(action) : tellOfBlocks(action);
}

int AgentSubject::tellOfRuns(const Action& action) {
  switch (action.what) {
    case Action::What::write:
      return table().writeIssued(action.id, action.run, action.content);
    case Action::What::finish:
      table().writeFinished(action.id, action.run);
      return 0;
    case Action::What::read:
      return eachExpectation(
          action, [&](const vdl::BlockRun& run, bool expects) { return table().readIssued(action.id, run, expects); });
    case Action::What::endRead:
      return table().readFinished(action.id, action.run, action.flag);
    case Action::What::skip:
      return table().readSkip(action.run);
    default:
      return tellOfBlocks(action);
  }
}

int AgentSubject::tellOfBlocks(const Action& action) {
  return eachBlock(action.run, [&](uint64_t lba, uint32_t block) { return tellOfBlock(action, lba, block); });
}

int AgentSubject::tellOfBlock(const Action& action, uint64_t lba, uint32_t block) {
  const vdl::BlockNum bucket = action.content.block + (action.content.nextBucketEach ? block : 0);
  vdl::EmbedData stamp = action.content.embed;
  stamp.lba = action.content.ownLbaEach ? lba : stamp.lba;
  switch (action.what) {
    case Action::What::write:
      return table().writeIssued(action.id, lba, bucket, stamp);
    case Action::What::atomic:
      return table().atomicWriteIssued(action.id, lba, bucket, stamp,
                                       segmentOf(block, static_cast<uint32_t>(action.run.count()), action.bound));
    case Action::What::finish:
      table().writeFinished(action.id, lba);
      return 0;
    case Action::What::fail:
      if (block >= action.from) {
        table().hardWriteError(action.id, lba);
      }
      return 0;
    case Action::What::read:
      return table().readIssued(action.id, lba, action.expects[block]);
    case Action::What::endRead:
      return table().readFinished(action.id, lba, action.flag).status;
    case Action::What::keepHashes:
      return table().saveHash(action.id, lba, action.hashes[block], action.flag);
    case Action::What::skip:
      return table().readSkip(lba);
    case Action::What::drop:
      return table().dropHash(action.id, lba);
    default:
      return 0;
  }
}

void AgentSubject::take(const ReadData& read) {
  if (way_ == Way::ofBlocks) {
    waiting_.push_back(read);
    return;
  }
  vdl::agent::DriveData& data = bench_.data();
  if (data.spareReads.empty()) {
    data.spareReads.emplace_back();
  }
  vdl::agent::ComparableReadData& kept = data.spareReads.front();
  kept.cmdId = read.id;
  kept.xferLength = read.length;
  kept.lba = read.lba;
  kept.blockCount = read.blocks;
  kept.lbaStep = static_cast<uint8_t>(read.step);
  kept.pendingWrites = read.overtaken;
  given_ = read.bytes;
  if (given_.empty()) {
    kept.data.release();
  } else {
    kept.view(given_.data(), given_.size());
  }
  data.comparableReads.splice(data.comparableReads.end(), data.spareReads, data.spareReads.begin());
}

int AgentSubject::judgeInTheStep() {
  vdl::agent::Step step = bench_.step();
  return bench_.data().comparableReads.empty() ? 0 : vdl::agent::doCompares(step);
}

int AgentSubject::judgeByHistory() {
  for (auto next = waiting_.begin(); next != waiting_.end();) {
    std::erase_if(next->overtaken,
                  [this](uint64_t id) { return std::find(inFlight_.begin(), inFlight_.end(), id) == inFlight_.end(); });
    if (!next->overtaken.empty()) {
      ++next;
      continue;
    }
    vdl::agent::ComparableReadData read;
    read.cmdId = next->id;
    read.xferLength = next->length;
    read.lba = next->lba;
    read.blockCount = next->blocks;
    read.lbaStep = static_cast<uint8_t>(next->step);
    if (!next->bytes.empty()) {
      read.data.view(next->bytes.data(), next->bytes.size());
    }
    vdl::agent::Step step = bench_.step();
    const int status = vdl::agent::judgeByHistory(step, read);
    next = waiting_.erase(next);
    if (status != 0) {
      return vdl::agent::logFailure(step, "doCompares", status);
    }
  }
  return 0;
}

void AgentSubject::look(Verdict& verdict) {
  verdict.output = streams_.takeOutput();
  verdict.errors = streams_.takeErrors();
  for (benchtest::LogLine& line : bench_.takeLog()) {
    verdict.log.push_back(line.level == 2 ? std::move(line.text)
                                          : "level " + std::to_string(line.level) + ": " + line.text);
  }
  const vdl::agent::DriveData& data = bench_.data();
  if (bench_.trace().count() != traced_) {
    const vdl::CommandTrace::TraceInfo entry = bench_.lastEntry();
    const bool once = bench_.trace().count() == traced_ + 1 && entry.type == vdl::TraceType::Miscompare;
    traced_ = bench_.trace().count();
    if (once && data.miscompareSeen && data.miscompareLBA == entry.lba) {
      verdict.traced = {entry.lba, entry.cmd_id, entry.block, entry.tag, entry.flag != 0};
    } else {
      verdict.log.emplace_back("a trace that is no miscompare, or more than one");
    }
  } else if (data.miscompareSeen) {
    verdict.log.emplace_back("a miscompare that was not traced");
  }
  verdict.history = bench_.trace().history();
  verdict.driveDump = bytesOf(*data.driveCompareData);
  verdict.referenceDump = bytesOf(*data.referenceCompareData);
}

}  // namespace refmodel
