#include "tests/oracle/AgentJudge.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <iostream>
#include <stdexcept>

#include "Compare.h"
#include "Completion.h"

namespace oracletest {

namespace {

using benchtest::CompletionBench;
using benchtest::WriteKind;

constexpr uint64_t historiesAnAgent = 2000;  ///< then another one, because nothing ever pays its bases off
constexpr uint64_t lbasAHistory = 7;         ///< so that the histories begin at all places of the agent's pages of 64
constexpr uint32_t lookTag = 20;
constexpr uint32_t baseTag = 21;
constexpr uint32_t sector = 512;

int mute(int stream) {
  const int kept = dup(stream);
  const int nowhere = open("/dev/null", O_WRONLY | O_CLOEXEC);
  dup2(nowhere, stream);
  close(nowhere);
  return kept;
}

void restore(int stream, int kept) {
  dup2(kept, stream);
  close(kept);
}

void flushAll() {
  std::fflush(stdout);
  std::fflush(stderr);
}

void require(bool held, const char* what, const History& history) {
  if (!held) {
    throw std::runtime_error(std::string(what) + ": " + describe(history));
  }
}

bool isFinding(int32_t status) { return status == vdl::status::miscompare || status == vdl::status::atomicOrder; }

/// The commands before an event, and those events.
History upTo(const History& history, std::size_t event) {
  History part = history;
  part.events.resize(event);
  return part;
}

}  // namespace

Silence::Silence() : flags_(std::cerr.flags()) {
  flushAll();
  out_ = mute(1);
  err_ = mute(2);
}

Silence::~Silence() {
  flushAll();
  restore(1, out_);
  restore(2, err_);
  std::cerr.flags(flags_);
}

AgentJudge::AgentJudge() : base_(sector, 0xB5), strange_(sector, 0x6E), zero_(sector, 0) { restart(); }

void AgentJudge::restart() {
  bench_ = std::make_unique<CompletionBench>(benchtest::Setup{.queueDepth = 32, .device = nullptr});
  bench_->variables().u64("MaxLBA") = ~uint64_t{0} / 2;
  bench_->start();
  // The bases are never read back, so the audit of debug builds would not add up.
  bench_->data().referencesBalanced = false;
  played_ = 0;
  origin_ = 1000;
}

void AgentJudge::setUp(const History& history) {
  if (++played_ > historiesAnAgent) {
    restart();
  }
  origin_ += lbasAHistory;
  verdicts_.clear();
  if (history.base == Base::unknown) {
    return;
  }
  const WriteKind kind = history.base == Base::trimmed ? WriteKind::trim : WriteKind::plain;
  // One block more: the agent knows a range only when it knows the block behind it.
  bench_->write(origin_, history.blocks + 1U, baseTag, kind);
  if (kind == WriteKind::plain) {
    base_.assign(bench_->data().writeData->data, bench_->data().writeData->data + bench_->data().writeData->size);
  }
  require(bench_->complete(baseTag) == 0, "the base failed", history);
  bench_->data().writeFinished.clear();
}

void AgentJudge::tearDown() {
  vdl::agent::DriveData& data = bench_->data();
  data.writeFinished.clear();
  data.writeSent.clear();
  data.readSent.clear();
  data.preReadSent.clear();
  data.preReadFinished.clear();
  data.comparableReads.clear();
  data.miscompareSeen = false;
  bench_->takeLog();
}

const uint8_t* AgentJudge::sectorOf(uint32_t block, Value value) const {
  switch (value) {
    case baseValue:
      return base_.data() + (base_.size() == sector ? 0 : block * sector);
    case zeroes:
      return zero_.data();
    case foreign:
      return strange_.data();
    default:
      return written_[value - 1U].data() + (block - firstOf_[value - 1U]) * sector;
  }
}

AgentJudge::Bytes AgentJudge::bytesOf(const Command& command, Image image) const {
  Bytes bytes(command.blocks * sector);
  for (uint32_t block = command.first; block < command.end(); ++block) {
    std::copy_n(sectorOf(block, valueAt(image, block)), sector,
                bytes.begin() + std::ptrdiff_t{block - command.first} * sector);
  }
  return bytes;
}

void AgentJudge::settle(uint64_t newRead, const std::function<int32_t()>& step) {
  vdl::agent::DriveData& data = bench_->data();
  std::vector<uint64_t> waiting;
  for (const auto& read : data.comparableReads) {
    waiting.push_back(read.cmdId);
  }
  if (newRead != 0) {
    waiting.push_back(newRead);
  }
  int32_t result = step();
  for (;;) {
    // The walk goes from the front and ends at the first finding, so that is the last read that is gone.
    uint64_t last = 0;
    std::erase_if(waiting, [&](uint64_t id) {
      const bool waits = std::any_of(data.comparableReads.begin(), data.comparableReads.end(),
                                     [id](const auto& read) { return read.cmdId == id; });
      if (!waits) {
        verdicts_[id] = 0;
        last = id;
      }
      return !waits;
    });
    if (result == 0) {
      return;
    }
    if (!isFinding(result) || last == 0) {
      throw std::runtime_error("the agent failed with " + std::to_string(result));
    }
    verdicts_[last] = result;
    data.miscompareSeen = false;
    vdl::agent::Step again = bench_->step();
    result = vdl::agent::doCompares(again);
  }
}

void AgentJudge::keepWritten(const Command& command, uint8_t number) {
  ids_[number] = bench_->data().nextCmdId - 1;
  firstOf_[number] = command.first;
  if (command.kind != Kind::trim) {
    const vdl::Buffer& shown = *bench_->data().writeData;
    written_[number].assign(shown.data, shown.data + shown.size);
  }
}

void AgentJudge::issueWrite(const Command& command, uint8_t number) {
  const uint64_t lba = origin_ + command.first;
  const std::size_t before = bench_->data().writeSent.size();
  switch (command.kind) {
    case Kind::atomicWrite:
      bench_->atomicWrite(lba, command.blocks, command.bound, number);
      break;
    case Kind::trim:
      bench_->write(lba, command.blocks, number, WriteKind::trim);
      break;
    default:
      bench_->write(lba, command.blocks, number);
      break;
  }
  if (bench_->data().writeSent.size() == before || *bench_->data().lba != lba) {
    throw std::runtime_error("the agent reads where the history says that it writes");
  }
  keepWritten(command, number);
}

void AgentJudge::issueReadAhead(const Command& command, uint8_t number) {
  bench_->atomicWrite(origin_ + command.first, command.blocks, command.bound, number);
  if (bench_->data().preReadSent.empty()) {
    throw std::runtime_error("the agent writes where the history says that it reads ahead");
  }
}

/// What the agent does for the blocks of a slid read beside its write.
void AgentJudge::issueLook(const Command& command, uint8_t number) {
  vdl::agent::DriveData& data = bench_->data();
  const uint64_t id = data.nextCmdId++;
  const uint64_t lba = origin_ + command.first;
  const uint32_t tag = lookTag;
  data.trace->traceReadIssued(lba, command.blocks, id, tag, 0, false);
  data.readSent.push_back(vdl::agent::ReadSent{id, lba, command.blocks, tag, 0, 0});
  if (data.atomicHash.readIssued(id, vdl::BlockRun{lba, lba + command.blocks}, false) != 0) {
    throw std::runtime_error("the table refused a read");
  }
  ids_[number] = id;
}

void AgentJudge::issue(const Command& command, uint8_t number) {
  switch (command.kind) {
    case Kind::look:
      return issueLook(command, number);
    case Kind::readAhead:
      return issueReadAhead(command, number);
    case Kind::readBack: {
      ids_[number] = bench_->readBack(number);
      const auto& sent = bench_->data().readSent.back();
      if (sent.lba != origin_ + command.first || sent.xferLength != command.blocks) {
        throw std::runtime_error("the agent reads another write back");
      }
      return;
    }
    default:
      return issueWrite(command, number);
  }
}

void AgentJudge::endLook(const Command& command, uint64_t id, Image image) {
  vdl::agent::DriveData& data = bench_->data();
  // Among looks on one tag the completed one is the one that the drive answered.
  const auto sent =
      std::find_if(data.readSent.begin(), data.readSent.end(), [id](const auto& read) { return read.cmdId == id; });
  if (sent == data.readSent.end()) {
    throw std::runtime_error("a read is gone");
  }
  const vdl::agent::ReadSent only = *sent;
  data.readSent.erase(sent);
  data.readSent.push_front(only);
  bench_->setReadData(lookTag, bytesOf(command, image));
  settle(id, [&] {
    vdl::agent::Step step = bench_->step();
    const vdl::agent::FinishedCommand finished{lookTag, 0, origin_ + command.first, command.blocks};
    const int32_t received = vdl::agent::recvRead(step, finished);
    return received != 0 ? received : vdl::agent::doCompares(step);
  });
  *data.readDataIsValid = 0;
}

void AgentJudge::end(const Command& command, uint8_t number, Image image) {
  switch (command.kind) {
    case Kind::look:
      return endLook(command, ids_[number], image);
    case Kind::readAhead:
      if (bench_->completeRead(number, bytesOf(command, image)) != 0) {
        throw std::runtime_error("the agent refused a read ahead");
      }
      return;
    case Kind::readBack:
      return settle(ids_[number], [&] { return bench_->completeRead(number, bytesOf(command, image)); });
    default: {
      const uint32_t status = command.ending == Ending::good ? 0 : CompletionBench::aborted;
      return settle(0, [&] { return bench_->complete(number, status); });
    }
  }
}

std::vector<Judgement> AgentJudge::judge(const History& history, uint8_t read, const std::vector<Image>& images) {
  const Command& judged = history.commands[read];
  require(judged.kind == Kind::look || images.size() == 1, "a read-back has one image", history);
  setUp(history);
  std::vector<uint64_t> ids;
  bool faultFound = false;
  for (const Event& event : history.events) {
    const Command& command = history.commands[event.command];
    if (event.command != read) {
      event.end ? end(command, event.command, history.shown[event.command]) : issue(command, event.command);
    } else if (!event.end) {
      for (std::size_t i = 0; i < images.size(); ++i) {
        issue(command, read);
        ids.push_back(ids_[read]);
      }
    } else {
      for (std::size_t i = 0; i < images.size(); ++i) {
        ids_[read] = ids[i];
        end(command, read, images[i]);
      }
    }
  }
  std::vector<Judgement> judgements;
  for (uint8_t i = 0; i < history.count(); ++i) {
    const Kind kind = history.commands[i].kind;
    faultFound =
        faultFound || (i != read && (kind == Kind::look || kind == Kind::readBack) && verdicts_.at(ids_[i]) != 0);
  }
  for (std::size_t i = 0; i < images.size() && !faultFound; ++i) {
    judgements.push_back({images[i], verdicts_.at(ids[i])});
  }
  tearDown();
  return judgements;
}

std::optional<History> AgentJudge::withReadsAhead(const History& history, uint8_t read,
                                                  const std::function<Image(const History&, uint8_t read)>& choose) {
  History whole = history;
  setUp(history);
  for (std::size_t i = 0; i < whole.events.size(); ++i) {
    const Event event = whole.events[i];
    const Command command = whole.commands[event.command];
    const uint64_t lba = origin_ + command.first;
    const bool unknown =
        !event.end && command.kind == Kind::atomicWrite && !bench_->table().isStateKnown(lba, lba + command.blocks);
    const auto& ahead = bench_->data().preReadFinished;
    if (unknown && !ahead.empty() && (ahead.begin()->lba != lba || ahead.begin()->xferLength != command.blocks)) {
      tearDown();
      return std::nullopt;
    }
    if (unknown && ahead.empty()) {
      const auto number = static_cast<uint8_t>(whole.commands.size());
      Command reading = command;
      reading.kind = Kind::readAhead;
      reading.ending = Ending::good;
      whole.commands.push_back(reading);
      const auto place = whole.events.begin() + static_cast<std::ptrdiff_t>(i);
      whole.events.insert(place, {Event{number, false}, Event{number, true}});
      issue(reading, number);
    } else if (!event.end) {
      issue(command, event.command);
    } else {
      if (isRead(command.kind) && event.command != read) {
        whole.shown[event.command] = choose(upTo(whole, i + 1), event.command);
      }
      if (event.command != read) {
        end(command, event.command, whole.shown[event.command]);
      }
    }
  }
  tearDown();
  return whole;
}

}  // namespace oracletest
