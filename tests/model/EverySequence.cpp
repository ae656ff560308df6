#include "tests/model/EverySequence.h"

#include <algorithm>

#include "tests/model/StateDifference.h"

namespace refmodel {

namespace {

using Act = Operation::Act;

struct Run {
  uint64_t first;
  uint32_t blocks;
};

/// Bytes that arrive of a torn block: the whole stamp and more.
constexpr uint32_t tornAt = 256;

std::vector<Run> everyRun() {
  std::vector<Run> runs;
  for (uint32_t blocks = 1; blocks <= EverySequence::lbas; ++blocks) {
    for (uint64_t first = 0; first + blocks <= EverySequence::lbas; ++first) {
      runs.push_back({first, blocks});
    }
  }
  return runs;
}

Operation ofCommand(Act act, uint32_t command) {
  Operation operation;
  operation.act = act;
  operation.command = command;
  return operation;
}

std::vector<uint64_t> writesInFlight(const Script& script) {
  std::vector<uint64_t> ids;
  for (const Life& life : script.lives()) {
    if (life.inFlight && writes(life.kind)) {
      ids.push_back(script.idOf(life.command));
    }
  }
  return ids;
}

/// Reads that wait, or end now, and overtook no write that is still in flight.
std::vector<uint64_t> readyReads(const ModelSubject& model, const std::vector<Action>& actions, const Script& script) {
  const std::vector<uint64_t> inFlight = writesInFlight(script);
  std::vector<ReadData> reads = model.waiting();
  for (const Action& action : actions) {
    if (action.what == Action::What::giveData) {
      reads.push_back(action.data);
    }
  }
  std::vector<uint64_t> ready;
  for (const ReadData& read : reads) {
    const bool waits = std::any_of(read.overtaken.begin(), read.overtaken.end(), [&](uint64_t id) {
      return std::find(inFlight.begin(), inFlight.end(), id) != inFlight.end();
    });
    if (!waits) {
      ready.push_back(read.id);
    }
  }
  return ready;
}

}  // namespace

bool EverySequence::run() {
  Comparison comparison;
  comparing_ = true;
  visitAll(comparison);
  return difference_.empty();
}

void EverySequence::count() {
  Comparison comparison;
  comparing_ = false;
  visitAll(comparison);
}

void EverySequence::visitAll(Comparison& comparison) {
  comparison_ = &comparison;
  medium_ = &comparison.medium();
  counts_ = {};
  difference_.clear();
  base_ = 0;
  const std::vector<Operation> beginnings = options({comparison.freshModel(), Script(*medium_, base_, 0)});
  for (size_t i = 0; i < beginnings.size() && difference_.empty(); ++i) {
    // With a border between pages of 64 LBAs behind the second block, behind the first one, and without.
    base_ = 62 + i % 3;
    goOn({comparison.freshModel(), Script(*medium_, base_, 0)}, beginnings[i]);
  }
}

bool EverySequence::canonical() const {
  return std::any_of(operations_.begin(), operations_.end(),
                     [](const Operation& operation) { return operation.act == Act::issue && operation.first == 0; });
}

void EverySequence::visit(const Stage& stage) {
  for (const Operation& operation : options(stage)) {
    goOn(stage, operation);
    if (!difference_.empty()) {
      return;
    }
  }
}

std::vector<Operation> EverySequence::options(const Stage& stage) const {
  std::vector<Operation> all;
  const std::vector<Life>& lives = stage.script.lives();
  const size_t left = length_ - operations_.size();
  if (lives.size() < commands) {
    addIssues(all, static_cast<uint32_t>(lives.size()) + 1);
  }
  bool inFlight = false;
  for (const Life& life : lives) {
    inFlight = inFlight || life.inFlight;
    life.inFlight ? addEnds(all, life) : addReturns(all, life);
  }
  if (!stage.model.table().records.empty()) {
    for (const bool replace : {false, true}) {
      Operation operation = ofCommand(Act::invalidate, 0);
      operation.blocks = lbas;
      operation.flag = replace;
      all.push_back(operation);
    }
  }
  if (inFlight) {
    all.push_back(ofCommand(Act::reset, 0));
  }
  if (left == 1 && !canonical()) {
    std::erase_if(all, [](const Operation& operation) { return operation.act != Act::issue || operation.first != 0; });
  }
  return all;
}

void EverySequence::addIssues(std::vector<Operation>& all, uint32_t command) const {
  for (const Run& run : everyRun()) {
    Operation operation = ofCommand(Act::issue, command);
    operation.first = run.first;
    operation.blocks = run.blocks;
    operation.bucket = 8 * command;
    for (const Kind kind : {Kind::write, Kind::trim, Kind::preRead, Kind::read}) {
      operation.kind = kind;
      all.push_back(operation);
    }
    operation.kind = Kind::atomic;
    for (operation.bound = 1; operation.bound <= run.blocks; ++operation.bound) {
      all.push_back(operation);
    }
    if (run.blocks > 1) {
      operation.kind = Kind::same;
      operation.bound = 1;
      all.push_back(operation);
    }
  }
}

void EverySequence::addEnds(std::vector<Operation>& all, const Life& life) const {
  if (life.kind == Kind::preRead) {
    for (const bool withReferences : {false, true}) {
      all.push_back(ofCommand(Act::keepHashes, life.command));
      all.back().flag = withReferences;
    }
    return;
  }
  if (life.kind == Kind::read) {
    for (const Act act : {Act::giveData, Act::end, Act::lose}) {
      all.push_back(ofCommand(act, life.command));
    }
    return;
  }
  all.push_back(ofCommand(Act::finish, life.command));
  // An atomic write fails as a whole; of another one the blocks before the failing one are good.
  const auto places = life.kind == Kind::atomic ? 1U : static_cast<uint32_t>(life.run.count());
  for (uint32_t from = 0; from < places; ++from) {
    all.push_back(ofCommand(Act::fail, life.command));
    all.back().from = from;
  }
}

void EverySequence::addReturns(std::vector<Operation>& all, const Life& life) const {
  if (life.hashed) {
    all.push_back(ofCommand(Act::drop, life.command));
  } else if (writes(life.kind) && !life.skipped) {
    Operation operation = ofCommand(Act::skip, life.command);
    operation.first = life.run.first - base_;
    operation.blocks = static_cast<uint32_t>(life.run.count());
    all.push_back(operation);
  }
}

void EverySequence::goOn(const Stage& stage, const Operation& operation) {
  Next next{stage, stage.script, {}, {}, {}};
  next.actions = next.script.settle(operation, stage.model.table());
  next.ready = readyReads(stage.model, next.actions, next.script);
  operations_.push_back(operation);
  bool goesOn = false;
  if (next.ready.empty()) {
    ModelSubject model = stage.model;
    playAndGoOn(next, model, goesOn);
  } else {
    chooseData(next, {}, goesOn);
  }
  operations_.pop_back();
}

std::vector<Content> EverySequence::choices(const Script& script, uint64_t lba) const {
  std::vector<Content> all{{Content::Is::before, 0, 0}, {Content::Is::foreign, 0, 0}};
  for (const Life& life : script.lives()) {
    if (writes(life.kind) && lba >= life.run.first && lba < life.run.end) {
      all.push_back({Content::Is::written, life.command, 0});
      all.push_back({Content::Is::torn, life.command, tornAt});
    }
  }
  std::vector<Bytes> seen;
  std::erase_if(all, [&](const Content& content) {
    Bytes bytes = script.bytesOf(content, lba);
    const bool again = std::find(seen.begin(), seen.end(), bytes) != seen.end();
    seen.push_back(std::move(bytes));
    return again;
  });
  return all;
}

void EverySequence::chooseData(Next& next, std::vector<Content> data, bool& goesOn) {
  const uint64_t id = next.ready[next.chosen.size()];
  const vdl::BlockRun run = next.script.lives()[id - 1].run;
  const uint64_t block = data.size();
  if (block == run.count()) {
    next.chosen.push_back(data);
    if (next.chosen.size() < next.ready.size()) {
      chooseData(next, {}, goesOn);
    } else {
      playChosen(next, goesOn);
    }
    next.chosen.pop_back();
    return;
  }
  data.emplace_back();
  for (const Content& content : choices(next.script, run.first + block)) {
    data.back() = content;
    const Verdict verdict = judgedBeginning(next, data);
    if (verdict.status == -1046 && verdict.traced->lba == run.first + block) {
      next.chosen.push_back(data);
      playChosen(next, goesOn);
      next.chosen.pop_back();
    } else {
      chooseData(next, data, goesOn);
    }
    if (!difference_.empty()) {
      return;
    }
  }
}

Bytes EverySequence::bytesOf(const Next& next, uint64_t id, const std::vector<Content>& data) {
  Operation operation;
  operation.data = data;
  return next.script.dataOf(next.script.lives()[id - 1].run, operation);
}

namespace {

void setData(std::vector<Action>& actions, uint64_t id, const Bytes& bytes, uint32_t blocks) {
  for (Action& action : actions) {
    if (action.what == Action::What::giveData && action.id == id) {
      action.data.bytes = bytes;
      action.data.blocks = blocks;
    }
  }
}

}  // namespace

/// What the model says of the first blocks of the next ready read; other reads are left alone.
Verdict EverySequence::judgedBeginning(const Next& next, const std::vector<Content>& data) const {
  ModelSubject model = next.from.model;
  std::vector<Action> actions = next.actions;
  for (size_t read = 0; read < next.ready.size(); ++read) {
    const uint64_t id = next.ready[read];
    const Bytes bytes = read == next.chosen.size() ? bytesOf(next, id, data) : Bytes{};
    const auto blocks = bytes.empty() ? 0 : static_cast<uint32_t>(data.size());
    model.setData(id, bytes, blocks);
    setData(actions, id, bytes, blocks);
  }
  Verdict verdict;
  for (const Action& action : actions) {
    verdict = model.carryOut(action);
    if (verdict.status != 0) {
      break;
    }
  }
  return verdict;
}

void EverySequence::playChosen(Next& next, bool& goesOn) {
  ModelSubject model = next.from.model;
  for (size_t read = 0; read < next.ready.size(); ++read) {
    const uint64_t id = next.ready[read];
    const std::vector<Content> data = read < next.chosen.size() ? next.chosen[read] : std::vector<Content>{};
    const auto blocks = static_cast<uint32_t>(next.script.lives()[id - 1].run.count());
    const Bytes bytes = bytesOf(next, id, data);
    model.setData(id, bytes, blocks);
    setData(next.actions, id, bytes, blocks);
    setData(actions_, id, bytes, blocks);
    for (Operation& operation : operations_) {
      if (operation.act == Act::giveData && operation.command == id) {
        operation.data = data;
      }
    }
  }
  ++counts_.judgements;
  playAndGoOn(next, model, goesOn);
}

void EverySequence::playAndGoOn(const Next& next, ModelSubject& model, bool& goesOn) {
  const bool open = play(next, model);
  if (!open || goesOn || !difference_.empty()) {
    return;
  }
  goesOn = true;
  if (operations_.size() < length_) {
    const size_t played = actions_.size();
    actions_.insert(actions_.end(), next.actions.begin(), next.actions.end());
    visit({model, next.script});
    actions_.resize(played);
  }
}

bool EverySequence::play(const Next& next, ModelSubject& model) {
  std::vector<Verdict> verdicts;
  for (const Action& action : next.actions) {
    verdicts.push_back(model.carryOut(action));
    if (verdicts.back().status != 0) {
      break;
    }
  }
  const End end = verdicts.empty() ? End::open : endOf(verdicts.back());
  if (canonical()) {
    ++counts_.sequences[operations_.size()];
    counts_.findings += end == End::found ? 1 : 0;
    counts_.refusals += end == End::refused ? 1 : 0;
    if (comparing_) {
      compare(next, model, verdicts);
    }
  }
  const Act act = operations_.back().act;
  const bool idle = (act == Act::skip || act == Act::invalidate) && sameTable(next.from.model.table(), model.table());
  return end == End::open && !idle;
}

void EverySequence::compare(const Next& next, const ModelSubject& model, const std::vector<Verdict>& verdicts) {
  comparison_->restart();
  for (const Action& action : actions_) {
    comparison_->repeat(action);
  }
  for (size_t i = 0; i < verdicts.size() && difference_.empty(); ++i) {
    difference_ = comparison_->carryOut(next.actions[i], verdicts[i]);
  }
  if (difference_.empty()) {
    difference_ = comparison_->compareTables(model, base_, base_ + lbas - 1, next.script);
  }
  if (!difference_.empty()) {
    difference_ = describe(Sequence{base_, 0, operations_}) + difference_;
  }
}

}  // namespace refmodel
