#include "tests/model/RandomSequence.h"

#include <rapidcheck.h>

#include <algorithm>
#include <map>
#include <random>
#include <unordered_map>
#include <vector>

namespace refmodel {

namespace {

using Act = Operation::Act;

/// The last sector of the pool is for blocks of elsewhere.
constexpr uint32_t bucketsToWrite = 63;

/// Makes one sequence, and keeps enough in mind to say mostly things that matter.
class Maker {
 public:
  explicit Maker(uint64_t number) : random_(number) {}

  Sequence make() {
    Sequence sequence;
    sequence.base = base();
    sequence.idBase = idBase();
    const uint32_t shape = below(20);
    span_ = shape < 14 ? 2 + below(6) : (shape < 19 ? 8 + below(14) : 60 + below(90));
    longest_ = shape < 14 ? 4 : (shape < 19 ? 8 : 80);
    for (uint32_t left = 4 + below(32); left > 0; --left) {
      sequence.operations.push_back(next());
    }
    return sequence;
  }

 private:
  struct Command {
    uint32_t number;
    Kind kind;
    uint64_t first;
    uint32_t blocks;
    uint32_t step;
    bool inFlight = true;
    bool toRead = false;
  };

  uint32_t below(uint32_t limit) { return static_cast<uint32_t>(random_() % limit); }
  bool chance(uint32_t percent) { return below(100) < percent; }

  uint64_t base() {
    constexpr uint64_t half = uint64_t{1} << 63;
    switch (below(12)) {
      case 0:
        return 0;
      case 1:
        return half - 3;
      case 2:
        return ~uint64_t{0} - 400;
      case 3:
        return (uint64_t{1} << 32) - 2;
      default:
        return 64 * (1 + below(4)) - below(6);
    }
  }

  /// Ids whose stamps take 1, 2, 3 and 8 bytes, and become longer under way.
  uint64_t idBase() {
    constexpr uint64_t bases[] = {0, 0, 0, 250, 65530, uint64_t{1} << 56, (uint64_t{1} << 56) - 5};
    return bases[below(7)];
  }

  Operation next() {
    std::vector<Command*> inFlight;
    for (Command& command : commands_) {
      if (command.inFlight) {
        inFlight.push_back(&command);
      }
    }
    const uint32_t dice = below(100);
    if (dice < 4 && !commands_.empty()) {
      return giveBack();
    }
    if (dice < 7) {
      return invalidate();
    }
    if (dice < 8) {
      return reset();
    }
    return inFlight.empty() || (inFlight.size() < 6 && chance(45))
               ? issue()
               : end(*inFlight[below(static_cast<uint32_t>(inFlight.size()))]);
  }

  void someBlocks(Operation& operation, uint32_t longest) {
    operation.blocks = 1 + below(std::min(longest, span_));
    operation.step = chance(8) ? 2 : 1;
    const uint64_t reach = uint64_t{operation.blocks} * operation.step;
    operation.first = below(span_ > reach ? static_cast<uint32_t>(span_ - reach) + 1 : 1);
  }

  Operation issue() {
    Operation operation;
    operation.act = Act::issue;
    operation.command = ++lastCommand_;
    const uint32_t dice = below(100);
    operation.kind = dice < 27   ? Kind::write
                     : dice < 31 ? Kind::unstamped
                     : dice < 35 ? Kind::same
                     : dice < 40 ? Kind::trim
                     : dice < 57 ? Kind::atomic
                     : dice < 63 ? Kind::preRead
                                 : Kind::read;
    someBlocks(operation, writes(operation.kind) ? std::min(longest_, 60U) : longest_);
    if (operation.kind == Kind::read) {
      readBack(operation);
    } else if (writes(operation.kind)) {
      operation.bucket = below(bucketsToWrite + 1 - operation.blocks);
      operation.bound = 1 + below(operation.blocks);
    }
    commands_.push_back({operation.command, operation.kind, operation.first, operation.blocks, operation.step});
    if (writes(operation.kind)) {
      for (uint32_t i = 0; i < operation.blocks; ++i) {
        writers_[operation.first + uint64_t{i} * operation.step].push_back(operation.command);
      }
    }
    return operation;
  }

  /// Mostly reads what a write left to be read.
  void readBack(Operation& operation) {
    operation.expects = chance(92) ? Expects::whereOwed : (chance(50) ? Expects::everywhere : Expects::nowhere);
    const auto found = std::find_if(commands_.begin(), commands_.end(), [](const Command& c) { return c.toRead; });
    if (found != commands_.end() && chance(75)) {
      found->toRead = false;
      operation.first = found->first;
      operation.blocks = found->blocks;
      operation.step = found->step;
      if (operation.first > 0 && operation.step == 1 && chance(20)) {
        --operation.first;
      }
    }
  }

  Operation ofCommand(Act act, uint32_t number) {
    Operation operation;
    operation.act = act;
    operation.command = number;
    return operation;
  }

  Operation end(Command& command) {
    command.inFlight = false;
    if (command.kind == Kind::preRead) {
      Operation operation = ofCommand(Act::keepHashes, command.number);
      operation.flag = chance(50);
      operation.data = rightData(command);
      return operation;
    }
    if (command.kind == Kind::read) {
      return endRead(command);
    }
    Operation operation = ofCommand(chance(75) ? Act::finish : Act::fail, command.number);
    operation.from = chance(50) ? 0 : below(command.blocks);
    command.toRead = operation.act == Act::finish || command.kind == Kind::atomic || chance(50);
    return operation;
  }

  Operation endRead(const Command& command) {
    const uint32_t dice = below(100);
    Operation operation = ofCommand(dice < 7 ? Act::end : (dice < 14 ? Act::lose : Act::giveData), command.number);
    if (operation.act == Act::giveData) {
      operation.data = rightData(command);
      if (chance(15)) {
        operation.data[below(command.blocks)] = wrongContent();
      }
      operation.trailers = chance(5);
      operation.leftOut = chance(4) ? below(command.blocks + 1) : 0;
      operation.cut = chance(2) ? 1 + below(600) : 0;
    }
    return operation;
  }

  /// Mostly what the latest write left, as far as that was issued before.
  std::vector<Content> rightData(const Command& command) {
    std::vector<Content> data;
    const uint32_t older = chance(15) ? 1 : 0;
    for (uint32_t i = 0; i < command.blocks; ++i) {
      std::vector<uint32_t> before = writers_[command.first + uint64_t{i} * command.step];
      std::erase_if(before, [&command](uint32_t writer) { return writer > command.number; });
      if (before.size() <= older) {
        data.emplace_back();
      } else {
        data.push_back({Content::Is::written, before[before.size() - 1 - older], 0});
      }
    }
    return data;
  }

  Content wrongContent() {
    const uint32_t command = 1 + below(std::max(lastCommand_, 1U));
    switch (below(5)) {
      case 0:
        return {Content::Is::before, 0, 0};
      case 1:
        return {Content::Is::foreign, 0, 0};
      case 2:
        return {Content::Is::torn, command, 1 + below(511)};
      case 3:
        return {Content::Is::flipped, command, chance(50) ? below(32) : below(512)};
      default:
        return {Content::Is::written, command, 0};
    }
  }

  Operation giveBack() {
    Command& command = commands_[below(static_cast<uint32_t>(commands_.size()))];
    if (command.kind == Kind::preRead || chance(10)) {
      return ofCommand(Act::drop, command.number);
    }
    Operation operation = ofCommand(Act::skip, 0);
    operation.first = command.first;
    operation.blocks = command.blocks;
    operation.step = command.step;
    command.toRead = false;
    return operation;
  }

  Operation invalidate() {
    Operation operation = ofCommand(Act::invalidate, 0);
    someBlocks(operation, span_);
    operation.step = 1;
    operation.flag = chance(50);
    return operation;
  }

  Operation reset() {
    for (Command& command : commands_) {
      command.toRead = command.toRead || (command.inFlight && command.kind != Kind::preRead);
      command.inFlight = false;
    }
    return ofCommand(Act::reset, 0);
  }

  std::mt19937_64 random_;
  uint32_t span_ = 0;
  uint32_t longest_ = 0;
  uint32_t lastCommand_ = 0;
  std::vector<Command> commands_;
  std::map<uint64_t, std::vector<uint32_t>> writers_;  ///< of each block, in the order of issue
};

/// Says the same with something simpler in one place; each answers false when it is as simple as that already.
using Simplify = bool (*)(Operation&);

template <auto Member>
bool clear(Operation& operation) {
  const Operation plain;
  if (operation.*Member == plain.*Member) {
    return false;
  }
  operation.*Member = plain.*Member;
  return true;
}

bool halfTheBlocks(Operation& operation) {
  if (operation.blocks < 2) {
    return false;
  }
  operation.blocks /= 2;
  return true;
}

bool oneBlockLess(Operation& operation) {
  if (operation.blocks < 2) {
    return false;
  }
  --operation.blocks;
  return true;
}

bool nearer(Operation& operation) {
  if (operation.first == 0) {
    return false;
  }
  operation.first /= 2;
  return true;
}

bool oneNearer(Operation& operation) {
  if (operation.first == 0) {
    return false;
  }
  --operation.first;
  return true;
}

bool plainWrite(Operation& operation) {
  if (operation.act != Act::issue || operation.kind == Kind::write || operation.kind == Kind::preRead ||
      operation.kind == Kind::read) {
    return false;
  }
  operation.kind = Kind::write;
  return true;
}

bool shorterData(Operation& operation) {
  if (operation.data.empty()) {
    return false;
  }
  operation.data.pop_back();
  return true;
}

constexpr Simplify simplifications[] = {
    halfTheBlocks,
    oneBlockLess,
    nearer,
    oneNearer,
    plainWrite,
    shorterData,
    clear<&Operation::step>,
    clear<&Operation::from>,
    clear<&Operation::leftOut>,
    clear<&Operation::cut>,
    clear<&Operation::trailers>,
    clear<&Operation::bound>,
    clear<&Operation::bucket>,
    clear<&Operation::expects>,
    clear<&Operation::flag>,
};

void addSimpler(std::vector<Sequence>& simpler, const Sequence& sequence, size_t place) {
  for (const Simplify simplify : simplifications) {
    Sequence other = sequence;
    if (simplify(other.operations[place])) {
      simpler.push_back(other);
    }
  }
  for (size_t block = 0; block < sequence.operations[place].data.size(); ++block) {
    Sequence other = sequence;
    Content& content = other.operations[place].data[block];
    if (content != Content{}) {
      content = content.is == Content::Is::foreign ? Content{} : Content{Content::Is::foreign, 0, 0};
      simpler.push_back(other);
      content = {};
      simpler.push_back(other);
    }
  }
}

/// The same a few blocks lower, so that the lowest one is the base.
Sequence moved(Sequence sequence) {
  uint64_t lowest = ~uint64_t{0};
  for (const Operation& operation : sequence.operations) {
    const bool hasBlocks =
        operation.act == Act::issue || operation.act == Act::skip || operation.act == Act::invalidate;
    lowest = hasBlocks ? std::min(lowest, operation.first) : lowest;
  }
  for (Operation& operation : sequence.operations) {
    operation.first -= std::min(operation.first, lowest);
  }
  return sequence;
}

/// The same with commands that are numbered from 1 without gaps.
Sequence renumbered(Sequence sequence) {
  std::map<uint32_t, uint32_t> numbers;
  for (const Operation& operation : sequence.operations) {
    if (operation.act == Act::issue) {
      numbers.try_emplace(operation.command, static_cast<uint32_t>(numbers.size()) + 1);
    }
  }
  const auto renumber = [&numbers](uint32_t& command) {
    const auto found = numbers.find(command);
    command = found == numbers.end() ? 0 : found->second;
  };
  for (Operation& operation : sequence.operations) {
    renumber(operation.command);
    for (Content& content : operation.data) {
      renumber(content.command);
    }
  }
  return sequence;
}

rc::Seq<Sequence> shrinksOf(const Sequence& sequence) {
  const auto withOperations = [sequence](std::vector<Operation> operations) {
    return Sequence{sequence.base, sequence.idBase, std::move(operations)};
  };
  std::vector<Sequence> simpler;
  if (sequence.idBase != 0) {
    simpler.push_back({sequence.base, 0, sequence.operations});
  }
  if (sequence.base != 128) {
    simpler.push_back({128, sequence.idBase, sequence.operations});
  }
  for (const Sequence& other : {moved(sequence), renumbered(sequence)}) {
    if (other != sequence) {
      simpler.push_back(other);
    }
  }
  for (size_t place = 0; place < sequence.operations.size(); ++place) {
    addSimpler(simpler, sequence, place);
  }
  return rc::seq::concat(rc::seq::map(rc::shrink::removeChunks(sequence.operations), withOperations),
                         rc::seq::fromContainer(std::move(simpler)));
}

rc::Gen<Sequence> sequences() {
  return [](const rc::Random& random, int) {
    rc::Random copy = random;
    return rc::shrinkable::shrinkRecur(randomSequence(copy.next()), &shrinksOf);
  };
}

/// Keeps silent: what was found is printed as sequences are, and not as the generator's values are.
class Silent : public rc::detail::TestListener {
 public:
  void onTestCaseFinished(const rc::detail::CaseDescription&) override {}
  void onShrinkTried(const rc::detail::CaseDescription&, bool) override {}
  void onTestFinished(const rc::detail::TestMetadata&, const rc::detail::TestResult&) override {}
};

}  // namespace

Sequence randomSequence(uint64_t number) { return Maker(number).make(); }

std::string playRandomSequences(Comparison& comparison, uint64_t seed, uint32_t cases, RandomCounts& counts) {
  std::string smallest;
  const uint64_t judgedBefore = comparison.judgedReads();
  const auto agree = [&] {
    const Sequence sequence = *sequences();
    const End end = comparison.play(sequence);
    ++counts.sequences;
    counts.operations += sequence.operations.size();
    counts.findings += end == End::found ? 1 : 0;
    counts.refusals += end == End::refused ? 1 : 0;
    if (end == End::different) {
      // The last one that differs is the smallest, because only smaller ones of the latest are tried.
      smallest = describe(sequence) + comparison.difference();
    }
    return end != End::different;
  };
  rc::detail::TestParams params;
  params.seed = seed;
  params.maxSuccess = static_cast<int>(cases);
  Silent silent;
  // Without the generator's own settings, which come from the environment and are announced.
  const std::unordered_map<std::string, rc::detail::Reproduce> noneToRepeat;
  const auto result = rc::detail::checkTestable(agree, rc::detail::TestMetadata{}, params, silent, noneToRepeat);
  counts.judgements += comparison.judgedReads() - judgedBefore;
  if (!result.is<rc::detail::SuccessResult>() && smallest.empty()) {
    return "the sequences could not be played";
  }
  return smallest;
}

}  // namespace refmodel
