// The expected-state table against a naive model of it. Both are driven by the same operations and compared after each.

#include <gtest/gtest.h>

#include <algorithm>
#include <iostream>
#include <map>
#include <memory>
#include <numeric>
#include <optional>
#include <random>
#include <sstream>
#include <string>
#include <vector>

#include "AtomicHash.h"
#include "support_model/TableModel.h"

namespace vdl {
namespace {

using modeltest::Model;
using modeltest::ModelEvent;
using modeltest::ModelPeek;
using modeltest::ModelRecord;
using modeltest::ModelWait;

// ---- comparing the two ----

/// Takes what is written to std::cerr, without the cost of a string stream.
class Listener : public std::streambuf {
 public:
  Listener() : flags_(std::cerr.flags()), previous_(std::cerr.rdbuf(this)) {}
  ~Listener() override {
    std::cerr.rdbuf(previous_);
    std::cerr.flags(flags_);
  }
  Listener(const Listener&) = delete;
  Listener& operator=(const Listener&) = delete;
  std::string text;

 protected:
  int_type overflow(int_type c) override {
    text.push_back(static_cast<char>(c));
    return c;
  }
  std::streamsize xsputn(const char* bytes, std::streamsize count) override {
    text.append(bytes, static_cast<std::size_t>(count));
    return count;
  }

 private:
  std::ios_base::fmtflags flags_;
  std::streambuf* previous_;
};

char kindOf(EventType type) { return "NWAHIM"[static_cast<int>(type)]; }
char contentOf(BlockType type) { return "UNAH"[static_cast<int>(type)]; }

bool same(const ModelPeek& m, const PeekResult& r) {
  return m.status == r.status && m.content == contentOf(r.block_type) && m.block == r.block_num && m.hash == r.hash &&
         m.stamped == r.embed.valid && m.stampId == r.embed.cmd_id && m.stampLba == r.embed.lba &&
         m.invalidated == r.invalidated;
}

bool same(const ModelEvent& m, const Event& e) {
  return m.kind == kindOf(e.type) && m.id == e.cmd_id && m.content == contentOf(e.block_type) &&
         m.block == e.block_num && m.hash == e.hash && m.stamped == e.embed.valid && m.stampId == e.embed.cmd_id &&
         m.stampLba == e.embed.lba && m.offset == e.segment.offset && m.length == e.segment.length &&
         m.segment == e.segment.segment;
}

/// Drives table and model and remembers the first difference.
class Pair {
 public:
  Model model;
  std::string difference;
  uint64_t refusals = 0;
  uint64_t removals = 0;

  const AtomicHash& table() const { return *table_; }

  /// Forgets everything.
  void restart() {
    model = Model{};
    table_ = std::make_unique<AtomicHash>();
    forgotten_ = 0;
  }

  /// Forgets the model's side and what it knows; the table keeps records that later operations never touch.
  void leaveBehind() {
    for (const auto& [lba, record] : model.records) {
      forgotten_ += record.references;
    }
    model = Model{};
  }

  void write(uint64_t id, uint64_t lba, uint32_t block, const EmbedData& embed) {
    check("writeIssued", model.write(id, lba, block, embed), table_->writeIssued(id, lba, block, embed));
  }
  void atomicWrite(uint64_t id, uint64_t lba, uint32_t block, const EmbedData& embed, const AtomicSegment& where) {
    check("atomicWriteIssued", model.atomicWrite(id, lba, block, embed, where),
          table_->atomicWriteIssued(id, lba, block, embed, where));
  }
  void finishWrite(uint64_t id, uint64_t lba) {
    model.finishWrite(id, lba);
    table_->writeFinished(id, lba);
    check("writeFinished", 0, 0);
  }
  void failWrite(uint64_t id, uint64_t lba) {
    model.failWrite(id, lba);
    table_->hardWriteError(id, lba);
    check("hardWriteError", 0, 0);
  }
  void issueRead(uint64_t id, uint64_t lba, bool expect) {
    check("readIssued", model.issueRead(id, lba, expect), table_->readIssued(id, lba, expect));
  }
  void finishRead(uint64_t id, uint64_t lba, bool keep) {
    const ModelPeek expected = model.finishRead(id, lba, keep);
    const PeekResult result = table_->readFinished(id, lba, keep);
    check("readFinished", expected.status, result.status);
    note(same(expected, result), "readFinished's answer");
  }
  void skipRead(uint64_t lba) { check("readSkip", model.skipRead(lba), table_->readSkip(lba)); }
  void saveHash(uint64_t id, uint64_t lba, uint64_t hash, bool addRef) {
    check("saveHash", model.saveHash(id, lba, hash, addRef), table_->saveHash(id, lba, hash, addRef));
  }
  void dropHash(uint64_t id, uint64_t lba) { check("dropHash", model.dropHash(id, lba), table_->dropHash(id, lba)); }
  void invalidate(uint64_t first, uint64_t last, bool replace) {
    model.invalidate(first, last, replace);
    table_->invalidate(first, last, replace ? AtomicHash::InvalidateReplace : AtomicHash::InvalidateKeepPrior);
    check("invalidate", 0, 0);
  }
  void clean(uint64_t lba) {
    model.clean(lba);
    table_->hashClean(lba);
    check("hashClean", 0, 0);
  }

  // A run is to the model what it stands for: its blocks one by one, up to the first refusal.
  template <typename Operation>
  static int eachOf(const BlockRun& run, Operation operation) {
    int result = 0;
    for (uint64_t offset = 0; offset < run.end - run.first && result == 0; offset += run.step) {
      result = operation(run.first + offset);
    }
    return result;
  }
  void writeRun(uint64_t id, const BlockRun& run, const WrittenContent& content) {
    WrittenContent c = content;
    const int expected = eachOf(run, [&](uint64_t lba) {
      c.embed.lba = c.ownLbaEach ? lba : c.embed.lba;
      return model.write(id, lba, c.nextBucketEach ? c.block++ : c.block, c.embed);
    });
    check("writeIssued of a run", expected, table_->writeIssued(id, run, content));
  }
  void finishWriteRun(uint64_t id, const BlockRun& run) {
    eachOf(run, [&](uint64_t lba) { return model.finishWrite(id, lba), 0; });
    table_->writeFinished(id, run);
    check("writeFinished of a run", 0, 0);
  }
  void issueReadRun(uint64_t id, const BlockRun& run, bool expect) {
    const int expected = eachOf(run, [&](uint64_t lba) { return model.issueRead(id, lba, expect); });
    check("readIssued of a run", expected, table_->readIssued(id, run, expect));
  }
  void finishReadRun(uint64_t id, const BlockRun& run, bool keep) {
    AwaitedEvents awaited(*table_, id, run);
    eachOf(run, [&](uint64_t lba) {
      note(awaited.next() == table_->awaitedEvent(id, lba), "an awaited event of a run");
      return 0;
    });
    const int expected = eachOf(run, [&](uint64_t lba) { return model.finishRead(id, lba, keep).status; });
    check("readFinished of a run", expected, table_->readFinished(id, run, keep));
  }
  void skipRun(const BlockRun& run) {
    const int expected = eachOf(run, [&](uint64_t lba) { return model.skipRead(lba); });
    check("readSkip of a run", expected, table_->readSkip(run));
  }

  /// Compares the blocks of the whole table, and in which order it shows them.
  void compareAll() {
    auto next = model.records.begin();
    for (const auto& [lba, record] : table_->records()) {
      note(next != model.records.end() && next->first == lba && next->second.references == record.ref_count,
           "the order of the records");
      if (next == model.records.end()) {
        return;
      }
      compareBlock(lba);
      ++next;
    }
    note(next == model.records.end() && table_->records().size() == model.records.size(), "the number of records");
  }

  /// Compares everything there is to see of the blocks from first to last, both included.
  void compare(uint64_t first, uint64_t last) {
    for (uint64_t lba = first; lba <= last; ++lba) {
      compareBlock(lba);
    }
    for (uint64_t from = first; from <= last; ++from) {
      for (uint64_t end = first; end <= last; ++end) {
        note(model.known(from, end) == table_->isStateKnown(from, end), "isStateKnown of a range");
      }
    }
    uint64_t references = forgotten_;
    for (const auto& [lba, record] : model.records) {
      references += record.references;
    }
    note(references == table_->references(), "the sum of references");
  }

 private:
  void note(bool agreed, const std::string& what) {
    if (!agreed && difference.empty()) {
      difference = what;
    }
  }

  void check(const char* operation, int expected, int actual) {
    note(expected == actual, std::string(operation) + "'s status");
    note(model.said == listener_.text, std::string(operation) + "'s line on standard error");
    refusals += model.said.empty() ? 0U : 1U;
    model.said.clear();
    listener_.text.clear();
  }

  void compareBlock(uint64_t lba) {
    const auto found = table_->records().find(lba);
    const bool exists = found != table_->records().end();
    note(exists == model.has(lba), "existence of a record");
    note(same(model.peek(lba), table_->peek(lba)), "peek");
    if (!exists || !model.has(lba)) {
      return;
    }
    const ModelRecord& expected = model.records.at(lba);
    const LBARecord& record = found->second;
    note(record.ref_count == expected.references, "ref_count");
    note(table_->isStateKnown(found) == model.known(expected), "isStateKnown of a block");
    std::size_t i = 0;
    for (const Event* e = record.events; e != nullptr; e = e->next, ++i) {
      note(i < expected.events.size() && same(expected.events[i], *e), "an event");
    }
    note(i == expected.events.size(), "the number of events");
    std::size_t w = 0;
    for (const WaitRead* wait = record.wait_read; wait != nullptr; wait = wait->next, ++w) {
      if (w >= expected.waits.size()) {
        break;
      }
      note(wait->cmd_id == expected.waits[w].id, "the id of a wait");
      const std::size_t head = Model::position(expected, expected.waits[w].serialOfHead);
      note(wait->event != nullptr && same(expected.events[head], *wait->event), "the event of a wait");
    }
    note(w == expected.waits.size(), "the number of waits");
  }

  std::unique_ptr<AtomicHash> table_ = std::make_unique<AtomicHash>();
  uint64_t forgotten_ = 0;
  Listener listener_;
};

// ---- every short sequence ----

/// The operations of which sequences are made. Commands take the ids 20, 30, … with the steps; 5 is older than all.
class Sequence {
 public:
  static constexpr std::size_t operations = 15;

  Sequence(Pair& pair, uint64_t base) : pair_(pair), base_(base) {}

  void run(std::size_t operation, uint64_t block, std::size_t step) {
    const uint64_t lba = base_ + block;
    const uint64_t id = 20 + 10 * step;
    const auto bucket = static_cast<uint32_t>(step + 1);
    switch (operation) {
      case 0:
        lastWrite_ = id;
        return pair_.write(id, lba, bucket, {true, id, lba});
      case 1:
        lastWrite_ = id;
        return pair_.atomicWrite(id, lba, bucket, {true, id, lba}, {1, 4, 2});
      case 2:
        return pair_.finishWrite(lastWrite_, lba);
      case 3:
        return pair_.failWrite(lastWrite_, lba);
      case 4:
        lastRead_ = id;
        return pair_.issueRead(id, lba, true);
      case 5:
        lastRead_ = id;
        return pair_.issueRead(id, lba, false);
      case 6:
        return pair_.finishRead(lastRead_, lba, true);
      case 7:
        return pair_.finishRead(lastRead_, lba, false);
      case 8:
        return pair_.skipRead(lba);
      case 9:
        return pair_.saveHash(5, lba, 0x77, true);
      case 10:
        return pair_.saveHash(id, lba, 0x78, false);
      case 11:
        return pair_.dropHash(5, lba);
      case 12:
        return pair_.dropHash(lastWrite_, lba);
      case 13:
        return pair_.invalidate(lba, base_ + 1, false);
      default:
        return pair_.invalidate(base_, lba, true);
    }
  }

 private:
  Pair& pair_;
  uint64_t base_;
  uint64_t lastWrite_ = 999;
  uint64_t lastRead_ = 999;
};

/// Runs every sequence of `length` operations on `blocks` blocks; answers how many there were.
uint64_t runAll(Pair& pair, std::size_t length, uint64_t blocks) {
  const uint64_t choices = Sequence::operations * blocks;
  uint64_t count = 1;
  for (std::size_t i = 0; i < length; ++i) {
    count *= choices;
  }
  uint64_t base = 0;
  for (uint64_t number = 0; number < count; ++number) {
    if (number % 2048 == 0) {
      pair.restart();
      base = 0;
    }
    Sequence sequence(pair, base);
    uint64_t rest = number;
    std::string text;
    for (std::size_t step = 0; step < length; ++step) {
      const uint64_t choice = rest % choices;
      rest /= choices;
      sequence.run(choice / blocks, choice % blocks, step);
    }
    pair.compare(base, base + 1);
    if (!pair.difference.empty()) {
      ADD_FAILURE() << pair.difference << " differs in sequence " << number << " of length " << length << " on "
                    << blocks << " blocks";
      return number;
    }
    pair.leaveBehind();
    base += 4;
  }
  return count;
}

TEST(AtomicHashModel, EverySequenceOfUpToFourOperationsOnTwoBlocks) {
  Pair pair;
  uint64_t sequences = 0;
  for (std::size_t length = 1; length <= 4; ++length) {
    sequences += runAll(pair, length, 2);
    if (HasFailure()) {
      return;
    }
  }
  EXPECT_EQ(sequences, 30U + 30 * 30 + 30 * 30 * 30 + 30 * 30 * 30 * 30);
  EXPECT_GT(pair.refusals, sequences / 10);
}

TEST(AtomicHashModel, EverySequenceOfFiveOperationsOnOneBlock) {
  Pair pair;
  const uint64_t sequences = runAll(pair, 5, 1);
  EXPECT_EQ(sequences, 15U * 15 * 15 * 15 * 15);
  EXPECT_GT(pair.refusals, sequences / 10);
}

// ---- long random sequences ----

class RandomLife {
 public:
  RandomLife(uint64_t seed, uint64_t blocks) : rng_(seed) {
    for (uint64_t block = 0; block < blocks; ++block) {
      places_.push_back(first + block);
    }
  }
  /// @param places the LBAs on which it plays; runs start at them and go on beyond
  RandomLife(uint64_t seed, std::vector<uint64_t> places) : rng_(seed), places_(std::move(places)) {}

  void step() {
    const uint64_t lba = anyPlace();
    const uint64_t id = nextId_++;
    switch (below(16)) {
      case 0:
      case 1:
        writes_.push_back(id);
        return pair.write(id, lba, static_cast<uint32_t>(below(100)), {below(2) == 0, id, lba});
      case 2:
        writes_.push_back(id);
        return pair.atomicWrite(id, lba, static_cast<uint32_t>(below(100)), {true, id, lba},
                                {static_cast<uint32_t>(below(4)), 4, static_cast<uint32_t>(below(3))});
      case 3:
        return pair.finishWrite(anyOf(writes_), lba);
      case 4:
        return pair.failWrite(anyOf(writes_), lba);
      case 5:
      case 6:
        reads_.push_back(id);
        return pair.issueRead(id, lba, true);
      case 7:
        reads_.push_back(id);
        return pair.issueRead(id, lba, false);
      case 8:
      case 9:
        return finishSomeRead(lba, below(4) == 0);
      case 10:
        return pair.skipRead(lba);
      case 11:
        return pair.saveHash(below(2) == 0 ? id : anyOf(writes_), lba, below(1000), below(2) == 0);
      case 12:
        return pair.dropHash(anyOf(writes_), lba);
      case 13: {
        const uint64_t other = anyPlace();
        return pair.invalidate(lba, other, below(2) == 0);
      }
      case 14:
        return pair.clean(lba);
      default:
        return pair.issueRead(anyOf(reads_), lba, below(2) == 0);
    }
  }

  void stepOfARun() {
    const uint64_t lba = anyPlace();
    // A run cannot reach the last LBA of all: its end would wrap.
    const BlockRun run{lba, lba + std::min<uint64_t>(1 + below(70), ~lba), 1 + static_cast<uint32_t>(below(2))};
    const uint64_t id = nextId_++;
    switch (below(8)) {
      case 0:
      case 1:
        writes_.push_back(id);
        return pair.writeRun(id, run,
                             {static_cast<uint32_t>(below(100)), {true, id, lba}, below(2) == 0, below(2) == 0});
      case 2:
        return pair.finishWriteRun(anyOf(writes_), run);
      case 3:
      case 4:
        reads_.push_back(id);
        return pair.issueReadRun(id, run, below(4) != 0);
      case 5:
      case 6:
        return pair.finishReadRun(anyOf(reads_), run, below(4) == 0);
      default:
        return pair.skipRun(run);
    }
  }

  static constexpr uint64_t first = 0x1000;
  Pair pair;

 private:
  uint64_t below(uint64_t limit) { return rng_() % limit; }
  uint64_t anyPlace() { return places_[below(places_.size())]; }

  uint64_t anyOf(const std::vector<uint64_t>& ids) {
    if (ids.empty()) {
      return 999999999;
    }
    // Mostly one of the latest, so that it still matters.
    const uint64_t back = std::min<uint64_t>(below(12), ids.size() - 1);
    return ids[ids.size() - 1 - back];
  }

  /// Mostly one that the block waits for.
  void finishSomeRead(uint64_t lba, bool keep) {
    const auto record = pair.model.records.find(lba);
    if (record == pair.model.records.end() || record->second.waits.empty() || below(8) == 0) {
      return pair.finishRead(anyOf(reads_), lba, keep);
    }
    const std::vector<ModelWait>& waits = record->second.waits;
    pair.finishRead(waits[below(waits.size())].id, lba, keep);
  }

  std::mt19937_64 rng_;
  std::vector<uint64_t> places_;
  uint64_t nextId_ = 1;
  std::vector<uint64_t> writes_;
  std::vector<uint64_t> reads_;
};

TEST(AtomicHashModel, LongRandomLives) {
  // Many lives and not one long one: what is never read back piles up, and then nothing new happens any more.
  uint64_t ends = 0;
  uint64_t refusals = 0;
  for (uint64_t seed = 1; seed <= 300; ++seed) {
    RandomLife life(seed, 1 + seed % 4);
    std::size_t before = 0;
    for (int step = 0; step < 300; ++step) {
      life.step();
      life.pair.compare(RandomLife::first, RandomLife::first + 5);
      ASSERT_EQ(life.pair.difference, "") << "seed " << seed << ", step " << step;
      ends += life.pair.model.records.size() < before ? 1U : 0U;
      before = life.pair.model.records.size();
    }
    refusals += life.pair.refusals;
  }
  EXPECT_GT(ends, 200U) << "records must come and go";
  EXPECT_GT(refusals, 1000U);
}

std::vector<uint64_t> lbasFrom(uint64_t first, uint64_t count) {
  std::vector<uint64_t> lbas(count);
  std::iota(lbas.begin(), lbas.end(), first);
  return lbas;
}

TEST(AtomicHashModel, BlocksAndRunsAnywhereOnADrive) {
  constexpr uint64_t top = ~uint64_t{0};
  const std::vector<std::vector<uint64_t>> drives = {
      lbasFrom(0, 6),           lbasFrom(60, 8),
      lbasFrom(top - 5, 6),     lbasFrom(0x10000, 200),
      lbasFrom(top - 129, 130), {0, 1, 63, 64, 65, 1 << 20, uint64_t{1} << 40, top / 2, top / 2 + 1, top - 64, top}};
  for (std::size_t drive = 0; drive < drives.size(); ++drive) {
    uint64_t ends = 0;
    for (uint64_t seed = 1; seed <= 20; ++seed) {
      RandomLife life(seed, drives[drive]);
      std::size_t before = 0;
      for (int step = 0; step < 150; ++step) {
        step % 2 == 0 ? life.step() : life.stepOfARun();
        if (step % 10 == 9) {
          life.pair.compareAll();
        }
        ASSERT_EQ(life.pair.difference, "") << "drive " << drive << ", seed " << seed << ", step " << step;
        ends += life.pair.model.records.size() < before ? 1U : 0U;
        before = life.pair.model.records.size();
      }
    }
    EXPECT_GT(ends, 10U) << "records must come and go on drive " << drive;
  }
}

}  // namespace
}  // namespace vdl
