#include "tests/model/Comparison.h"

#include <algorithm>

#include "tests/model/StateDifference.h"

namespace refmodel {

namespace {

std::string different(const char* way, const Verdict& expected, const Verdict& found) {
  return std::string("the agent, ") + way + ":\n" + describe(found) + "  the model:\n" + describe(expected);
}

/// Comparing the tables takes longer than an operation, and what is wrong in them mostly stays so.
constexpr size_t tablesEvery = 4;

/// The blocks that a sequence touches, from its base.
uint64_t reachOf(const Sequence& sequence) {
  uint64_t reach = 1;
  for (const Operation& operation : sequence.operations) {
    reach = std::max(reach, operation.first + uint64_t{operation.blocks} * operation.step);
  }
  return reach;
}

}  // namespace

End endOf(const Verdict& verdict) {
  if (verdict.status == 0) {
    return End::open;
  }
  return verdict.traced ? End::found : End::refused;
}

Comparison::Comparison()
    : ofRuns_(AgentSubject::Way::ofRuns, streams_),
      ofBlocks_(AgentSubject::Way::ofBlocks, streams_),
      medium_(ofRuns_.medium()),
      statusLine_(ofRuns_.statusLine()) {}

void Comparison::restart() {
  ofRuns_.restart();
  ofBlocks_.restart();
}

void Comparison::repeat(const Action& action) {
  ofRuns_.repeat(action);
  ofBlocks_.repeat(action);
}

std::string Comparison::carryOut(const Action& action, const Verdict& expected) {
  if (const Verdict found = ofRuns_.carryOut(action); found != expected) {
    return different("told of runs and judging in place", expected, found);
  }
  if (const Verdict found = ofBlocks_.carryOut(action); found != expected) {
    return different("told of blocks and judging by histories", expected, found);
  }
  return {};
}

std::string Comparison::compareTables(const ModelSubject& model, uint64_t first, uint64_t last, const Script& script) {
  // The context of a read that has ended is empty, and the tables have shown that nobody waits for it.
  std::vector<uint64_t> reads;
  for (const Life& life : script.lives()) {
    const uint64_t id = script.idOf(life.command);
    const bool waits = std::any_of(model.waiting().begin(), model.waiting().end(),
                                   [id](const ReadData& read) { return read.id == id; });
    if (life.kind == Kind::read && (life.inFlight || waits)) {
      reads.push_back(id);
    }
  }
  if (std::string text = stateDifference(model.table(), ofRuns_.table(), first, last, reads); !text.empty()) {
    return "the table that was told of runs: " + text + "\n";
  }
  if (std::string text = stateDifference(model.table(), ofBlocks_.table(), first, last, reads); !text.empty()) {
    return "the table that was told of blocks: " + text + "\n";
  }
  return {};
}

End Comparison::play(const Sequence& sequence) {
  restart();
  ModelSubject model = freshModel();
  Script script(medium_, sequence.base, sequence.idBase);
  const uint64_t last = sequence.base + reachOf(sequence);
  for (size_t step = 0; step < sequence.operations.size(); ++step) {
    for (const Action& action : script.settle(sequence.operations[step], model.table())) {
      const size_t waiting = model.waiting().size() + (action.what == Action::What::giveData ? 1 : 0);
      const Verdict expected = model.carryOut(action);
      judged_ += waiting - model.waiting().size();
      difference_ = carryOut(action, expected);
      const bool ends = expected.status != 0 || step + 1 == sequence.operations.size();
      if (difference_.empty() && (ends || step % tablesEvery == 0)) {
        difference_ = compareTables(model, sequence.base, last, script);
      }
      if (!difference_.empty()) {
        difference_ = "after operation " + std::to_string(step + 1) + ", " + difference_;
        return End::different;
      }
      if (const End end = endOf(expected); end != End::open) {
        return end;
      }
    }
  }
  return End::open;
}

}  // namespace refmodel
