// The expected-state table against a naive model of it: plain structs in vectors, slow and obvious. Both are driven by
// the same operations and compared after each.

#include <gtest/gtest.h>

#include <iostream>
#include <map>
#include <memory>
#include <optional>
#include <random>
#include <sstream>
#include <string>
#include <vector>

#include "AtomicHash.h"

namespace vdl {
namespace {

struct ModelEvent {
  int serial = 0;  ///< tells events apart that carry the same id
  char kind = 'N';  ///< N one, W rite, A tomic, H ash, I nvalidate, M arker
  uint64_t id = 0;
  char content = 'U';  ///< U nknown, N ormal, A tomic (unfinished), H ash
  uint32_t block = 0x80001;
  uint64_t hash = 0;
  bool stamped = false;
  uint64_t stampId = 0;
  uint64_t stampLba = 0;
  uint32_t offset = 0;
  uint32_t length = 0;
  uint32_t segment = 0;
};

struct ModelWait {
  uint64_t id;
  int serialOfHead;
};

struct ModelRecord {
  uint64_t references = 0;
  std::vector<ModelEvent> events;  ///< newest first
  std::vector<ModelWait> waits;    ///< newest first
};

struct ModelPeek {
  int status = -1003;
  char content = 'U';
  uint32_t block = 0x80001;
  uint64_t hash = 0;
  bool stamped = false;
  uint64_t stampId = 0;
  uint64_t stampLba = 0;
  bool invalidated = false;
};

struct Model {
  std::map<uint64_t, ModelRecord> records;
  int nextSerial = 1;
  std::string said;  ///< lines to standard error

  static std::string hex(uint64_t value) {
    std::ostringstream text;
    text << std::hex << value;
    return text.str();
  }
  void say(const std::string& what, uint64_t lba) { said += what + hex(lba) + "\n"; }
  void say(const std::string& what, uint64_t lba, uint64_t id) {
    said += what + hex(lba) + " cmd_id:" + hex(id) + "\n";
  }

  bool has(uint64_t lba) const { return records.count(lba) == 1; }

  void put(ModelRecord& record, ModelEvent event) {
    event.serial = nextSerial++;
    std::vector<ModelEvent>& list = record.events;
    if (list.empty() || event.id == 0 || event.id > list[0].id) {
      list.insert(list.begin(), event);
      return;
    }
    std::size_t behind = 0;
    while (behind + 1 < list.size() && list[behind + 1].id > event.id) {
      ++behind;
    }
    list.insert(list.begin() + static_cast<std::ptrdiff_t>(behind) + 1, event);
  }

  void clean(uint64_t lba) {
    if (has(lba) && records[lba].references == 0 && records[lba].waits.empty()) {
      records.erase(lba);
    }
  }

  /// The newest event from position `from` on that is no marker.
  static ModelPeek peekFrom(const std::vector<ModelEvent>& list, std::size_t from) {
    ModelPeek result;
    for (std::size_t i = from; i < list.size(); ++i) {
      const ModelEvent& e = list[i];
      if (e.kind == 'M') {
        result.invalidated = true;
        continue;
      }
      result.status = 0;
      result.content = e.content;
      result.block = e.block;
      result.hash = e.hash;
      result.stamped = e.stamped;
      result.stampId = e.stampId;
      result.stampLba = e.stampLba;
      return result;
    }
    return result;
  }

  ModelPeek peek(uint64_t lba) const { return has(lba) ? peekFrom(records.at(lba).events, 0) : ModelPeek{}; }

  int write(uint64_t id, uint64_t lba, uint32_t block, const EmbedData& embed) {
    ModelRecord& record = records[lba];
    record.references += 1;
    ModelEvent e;
    e.kind = 'W';
    e.id = id;
    e.content = 'N';
    e.block = block;
    e.stamped = embed.valid;
    e.stampId = embed.cmd_id;
    e.stampLba = embed.lba;
    put(record, e);
    return 0;
  }

  int atomicWrite(uint64_t id, uint64_t lba, uint32_t block, const EmbedData& embed, const AtomicSegment& where) {
    ModelRecord& record = records[lba];
    record.references += 1;
    ModelEvent e;
    e.kind = 'A';
    e.id = id;
    e.content = 'A';
    e.block = block;
    e.stamped = embed.valid;
    e.stampId = embed.cmd_id;
    e.stampLba = embed.lba;
    e.offset = where.offset;
    e.length = where.length;
    e.segment = where.segment;
    put(record, e);
    return 0;
  }

  void finishWrite(uint64_t id, uint64_t lba) {
    if (!has(lba)) {
      return;
    }
    for (ModelEvent& e : records[lba].events) {
      if (e.id == id) {
        if (e.content == 'A') {
          e.content = 'N';
        }
        return;
      }
    }
  }

  void failWrite(uint64_t id, uint64_t lba) {
    if (!has(lba)) {
      return;
    }
    for (ModelEvent& e : records[lba].events) {
      if (e.id == id) {
        if (e.kind == 'W') {
          e.block = 0x80001;
        }
        return;
      }
    }
  }

  bool known(const ModelRecord& record) const {
    for (const ModelEvent& e : record.events) {
      if (e.content == 'N' || e.content == 'H') {
        return true;
      }
      if (e.content != 'A') {
        return false;
      }
    }
    return false;
  }

  bool known(uint64_t first, uint64_t end) const {
    if (!has(first) || !has(end)) {
      return false;
    }
    for (uint64_t lba = first; lba < end; ++lba) {
      if (!has(lba) || !known(records.at(lba))) {
        return false;
      }
    }
    return true;
  }

  void invalidate(uint64_t first, uint64_t last, bool replace) {
    for (auto& [lba, record] : records) {
      if (lba >= first && lba <= last) {
        ModelEvent e;
        e.kind = replace ? 'I' : 'M';
        put(record, e);
      }
    }
  }

  int issueRead(uint64_t id, uint64_t lba, bool expect) {
    if (has(lba)) {
      if (expect) {
        if (records[lba].references == 0) {
          say("<E> SANITY_CHECK readIssued expect=1 ref_count=0 lba:", lba, id);
          return -1200;
        }
        records[lba].references -= 1;
      }
    } else {
      if (expect) {
        say("<E> readIssued !record && expect lba:", lba, id);
        return -1003;
      }
      put(records[lba], ModelEvent{});
    }
    ModelRecord& record = records[lba];
    record.waits.insert(record.waits.begin(), ModelWait{id, record.events.at(0).serial});
    return 0;
  }

  ModelPeek finishRead(uint64_t id, uint64_t lba, bool keep) {
    if (!has(lba)) {
      say("<E> readFinished couldn't find record lba:", lba, id);
      return {};
    }
    ModelRecord& record = records[lba];
    for (std::size_t w = 0; w < record.waits.size(); ++w) {
      if (record.waits[w].id == id) {
        const ModelPeek result = peekFrom(record.events, position(record, record.waits[w].serialOfHead));
        record.waits.erase(record.waits.begin() + static_cast<std::ptrdiff_t>(w));
        if (keep) {
          record.references += 1;
        } else {
          clean(lba);
        }
        return result;
      }
    }
    say("<E> readFinished couldn't find wait_read lba:", lba, id);
    return {};
  }

  static std::size_t position(const ModelRecord& record, int serial) {
    std::size_t i = 0;
    while (record.events.at(i).serial != serial) {
      ++i;
    }
    return i;
  }

  int skipRead(uint64_t lba) {
    if (!has(lba)) {
      say("<E> readSkip couldn't find record lba:", lba);
      return -1003;
    }
    if (records[lba].references > 0) {
      records[lba].references -= 1;
      clean(lba);
    }
    return 0;
  }

  int saveHash(uint64_t id, uint64_t lba, uint64_t hash, bool addRef) {
    ModelRecord& record = records[lba];
    record.references += addRef ? 1 : 0;
    ModelEvent e;
    e.kind = 'H';
    e.id = id;
    e.content = 'H';
    e.hash = hash;
    put(record, e);
    return 0;
  }

  int dropHash(uint64_t id, uint64_t lba) {
    if (!has(lba)) {
      say("<E> dropHash couldn't find record lba:", lba);
      return -1003;
    }
    bool found = false;
    for (const ModelEvent& e : records[lba].events) {
      found = found || e.id == id;
    }
    if (!found) {
      say("<E> dropHash no hash event found. lba:", lba, id);
      return -1003;
    }
    if (records[lba].references == 0) {
      say("<E> SANITY_CHECK dropHash ref_count=0 lba:", lba, id);
      return -1200;
    }
    records[lba].references -= 1;
    clean(lba);
    return 0;
  }
};

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
  void dropHash(uint64_t id, uint64_t lba) {
    check("dropHash", model.dropHash(id, lba), table_->dropHash(id, lba));
  }
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
  RandomLife(uint64_t seed, uint64_t blocks) : rng_(seed), blocks_(blocks) {}

  void step() {
    const uint64_t lba = first + below(blocks_);
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
        const uint64_t other = first + below(blocks_);
        return pair.invalidate(lba, other, below(2) == 0);
      }
      case 14:
        return pair.clean(lba);
      default:
        return pair.issueRead(anyOf(reads_), lba, below(2) == 0);
    }
  }

  static constexpr uint64_t first = 0x1000;
  Pair pair;

 private:
  uint64_t below(uint64_t limit) { return rng_() % limit; }

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
  uint64_t blocks_;
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

}  // namespace
}  // namespace vdl
