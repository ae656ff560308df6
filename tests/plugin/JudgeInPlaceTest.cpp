#include "JudgeInPlace.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <random>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "Compare.h"
#include "LazyHasher.h"
#include "SectorBuckets.h"
#include "support/CompletionBench.h"

namespace benchtest {
namespace {

using vdl::agent::ComparableReadData;
namespace block_num = vdl::block_num;

constexpr uint32_t rounds = 400;

/// How a round of random histories is drawn: chances in percent.
struct Mix {
  const char* name;
  int atomic = 0;        ///< atomic writes among the operations
  int invalidation = 0;  ///< invalidations among the operations
  int hash = 0;          ///< kept hashes among the operations
  int hardError = 0;     ///< writes that end with one
  int wrong = 0;         ///< a block holds something else than its newest content
  int missingWait = 0;   ///< a read waits on all blocks but one
  int oddSize = 0;       ///< the data are too short, or missing, or have protection behind each block
  int skip = 0;          ///< skip commands
};

/// Everything that a judgement may change.
std::string stateOf(CompletionBench& bench) {
  std::ostringstream out;
  for (const auto& [lba, record] : bench.table().records()) {
    out << lba << " refs " << record.ref_count << " waits";
    for (const vdl::WaitRead* wait = record.wait_read; wait != nullptr; wait = wait->next) {
      out << ' ' << wait->cmd_id;
    }
    out << " events";
    for (const vdl::Event* event = record.events; event != nullptr; event = event->next) {
      out << ' ' << event->cmd_id << '/' << static_cast<uint32_t>(event->block_type) << '/' << event->block_num;
    }
    out << '\n';
  }
  const auto& data = bench.data();
  out << "references " << bench.table().references() << " seen " << data.miscompareSeen << " at " << data.miscompareLBA
      << " traced " << bench.trace().count() << '\n';
  const auto last = bench.lastEntry();
  out << static_cast<int>(last.type) << ' ' << last.lba << ' ' << last.cmd_id << ' ' << last.tag << ' ' << last.block
      << ' ' << int{last.flag} << '\n'
      << bench.trace().history();
  for (const vdl::Buffer* dump : {data.driveCompareData, data.referenceCompareData}) {
    out << "dump of " << dump->size << ": " << vdl::blockHash(dump->data, dump->data + dump->size) << '\n';
  }
  return out.str();
}

/// What came of judging a read.
struct Outcome {
  int32_t result = 0;
  std::vector<LogLine> log;
  std::string output;
  std::string errors;
  std::string state;
  bool operator==(const Outcome&) const = default;
};
void PrintTo(const Outcome& outcome, std::ostream* out) {
  *out << outcome.result << ' ' << ::testing::PrintToString(outcome.log) << "\n"
       << outcome.output << outcome.errors << outcome.state;
}

/// Two agents with the same history, one of which judges in place what it can, and the other one nothing.
class Twins {
 public:
  explicit Twins(const Setup& setup = {}) : fast_(setup), thorough_(setup) {
    fast_.start();
    thorough_.start();
    sector_ = fast_.sectorBytes();
  }

  /// One random history, one read over it, judged by both.
  void round(const Mix& mix, uint32_t seed) {
    random_.seed(seed);
    if (seed == rounds - 20) {
      id_ = uint64_t{1} << 56;  // 8 bytes, which no test lasts long enough for
    }
    first_ += 200;
    step_ = chance(mix.skip) ? 2 : 1;
    blocks_ = chance(70) ? 1 + draw(8) : 1 + draw(70);
    contents_.assign(blocks_, {});
    for (uint32_t operations = 1 + draw(5); operations-- > 0;) {
      operate(mix);
    }
    const uint64_t read = ++id_;
    const uint32_t without = chance(mix.missingWait) ? draw(blocks_) : blocks_;
    for (uint32_t i = 0; i < blocks_; ++i) {
      if (i != without) {
        both([&](vdl::AtomicHash& table) { table.readIssued(read, lba(i), false); });
      }
    }
    if (chance(30)) {
      operate(mix);  // behind the read, and so none of its business
    }
    judge(read, dataOf(mix));
  }

  uint32_t inPlace() const { return inPlace_; }
  uint32_t byHistory() const { return byHistory_; }
  uint32_t findings() const { return findings_; }

 private:
  uint32_t draw(uint32_t limit) { return static_cast<uint32_t>(random_() % limit); }
  bool chance(int percent) { return static_cast<int>(draw(100)) < percent; }
  uint64_t lba(uint32_t block) const { return first_ + uint64_t{block} * step_; }

  template <typename Operation>
  void both(Operation operation) {
    operation(fast_.table());
    operation(thorough_.table());
  }

  void operate(const Mix& mix) {
    const uint32_t from = chance(60) ? 0 : draw(blocks_);
    const uint32_t count = chance(60) ? blocks_ - from : 1 + draw(blocks_ - from);
    const auto kind = static_cast<int>(draw(100));
    if (kind < mix.atomic) {
      atomicWrite(from, count);
    } else if (kind < mix.atomic + mix.invalidation) {
      const auto method = chance(60) ? vdl::AtomicHash::InvalidateKeepPrior : vdl::AtomicHash::InvalidateReplace;
      both([&](vdl::AtomicHash& table) { table.invalidate(lba(from), lba(from + count - 1), method); });
    } else if (kind < mix.atomic + mix.invalidation + mix.hash) {
      keepHashes(from, count);
    } else {
      write(mix, from, count);
    }
  }

  void write(const Mix& mix, uint32_t from, uint32_t count) {
    // Ids of every length, one of 7 bytes at last.
    id_ = (id_ + 1) * (id_ >> 40 == 0 && chance(5) ? 0x101 : 1);
    const uint64_t id = id_;
    const uint32_t bucket = draw(64 - std::min(count, 63U));
    const bool trim = chance(10);
    const bool stamped = !trim && chance(85);
    const bool unknown = chance(5);
    const bool failed = chance(mix.hardError);
    const bool finished = chance(80);
    for (uint32_t i = from; i < from + count; ++i) {
      const vdl::BlockNum number = unknown ? block_num::unknown : trim ? block_num::zero : (bucket + i - from) % 64;
      const vdl::EmbedData embed = stamped ? vdl::EmbedData{true, id, lba(i)} : vdl::EmbedData{};
      both([&](vdl::AtomicHash& table) {
        table.writeIssued(id, lba(i), number, embed);
        failed ? table.hardWriteError(id, lba(i)) : finished ? table.writeFinished(id, lba(i)) : void();
      });
      remember(i, number, embed);
    }
  }

  void atomicWrite(uint32_t from, uint32_t count) {
    const uint64_t id = ++id_;
    const uint32_t bucket = draw(64);
    const uint32_t bound = 1 + draw(count);
    const bool finished = chance(50);
    for (uint32_t i = 0; i < count; ++i) {
      const vdl::EmbedData embed{true, id, lba(from + i)};
      const vdl::AtomicSegment segment{i % bound, bound, i / bound};
      both([&](vdl::AtomicHash& table) {
        table.atomicWriteIssued(id, lba(from + i), (bucket + i) % 64, embed, segment);
        if (finished) {
          table.writeFinished(id, lba(from + i));
        }
      });
      remember(from + i, (bucket + i) % 64, embed);
    }
  }

  void keepHashes(uint32_t from, uint32_t count) {
    const uint64_t id = ++id_;
    for (uint32_t i = from; i < from + count; ++i) {
      contents_[i].push_back(randomBytes());
      const uint8_t* bytes = contents_[i].back().data();
      const uint64_t hash = vdl::blockHash(bytes, bytes + sector_);
      both([&](vdl::AtomicHash& table) { table.saveHash(id, lba(i), hash, true); });
    }
  }

  void remember(uint32_t block, vdl::BlockNum number, const vdl::EmbedData& embed) {
    const uint8_t* content = vdl::agent::expectedSector(fast_.step(), number, embed);
    contents_[block].push_back(content == nullptr ? randomBytes() : Bytes(content, content + sector_));
  }

  Bytes randomBytes() {
    Bytes bytes(sector_);
    for (uint8_t& byte : bytes) {
      byte = static_cast<uint8_t>(random_());
    }
    return bytes;
  }

  /// What the medium shows: the newest contents, or in wrong blocks an older one, a flipped bit or nonsense.
  Bytes blockOf(const Mix& mix, uint32_t block) {
    const std::vector<Bytes>& written = contents_[block];
    if (written.empty()) {
      return randomBytes();
    }
    Bytes bytes = written.back();
    if (chance(mix.wrong)) {
      const uint32_t way = draw(3);
      if (way == 0) {
        bytes = written[draw(static_cast<uint32_t>(written.size()))];
      } else if (way == 1) {
        bytes[chance(50) ? draw(40) : draw(sector_)] ^= static_cast<uint8_t>(1U << draw(8));
      } else {
        bytes = randomBytes();
      }
    }
    return bytes;
  }

  Bytes dataOf(const Mix& mix) {
    const bool trailers = chance(mix.oddSize);
    Bytes all;
    for (uint32_t i = 0; i < blocks_; ++i) {
      const Bytes block = blockOf(mix, i);
      all.insert(all.end(), block.begin(), block.end());
      all.insert(all.end(), trailers ? 8 : 0, 0x5A);
    }
    if (chance(mix.oddSize)) {
      all.resize(all.size() - draw(sector_ + 1));
    }
    return all;
  }

  void judge(uint64_t read, const Bytes& bytes) {
    const bool missing = bytes.empty();
    const uint32_t compared = chance(20) ? draw(blocks_ + 1) : blocks_;
    const auto kept = [&] {
      ComparableReadData data;
      data.cmdId = read;
      data.lba = first_;
      data.xferLength = blocks_;
      data.blockCount = compared;
      data.lbaStep = static_cast<uint8_t>(step_);
      if (!missing) {
        data.data.reserve(bytes.size());
        std::copy(bytes.begin(), bytes.end(), data.data.data);
        data.data.size = bytes.size();
      }
      return data;
    };
    ComparableReadData mine = kept();
    const std::string before = stateOf(thorough_);
    const bool right = vdl::agent::rightInPlace(thorough_.step(), mine);
    EXPECT_EQ(stateOf(thorough_), before) << "looking has changed something";

    const Outcome thorough = outcomeOf(thorough_, [&] {
      vdl::agent::Step step = thorough_.step();
      const int32_t result = vdl::agent::judgeByHistory(step, mine);
      return result == 0 ? result : vdl::agent::logFailure(step, "doCompares", result);
    });
    const Outcome fast = outcomeOf(fast_, [&] {
      vdl::agent::Step step = fast_.step();
      step.data.comparableReads.push_back(kept());
      return vdl::agent::doCompares(step);
    });
    ASSERT_EQ(fast, thorough);
    ASSERT_TRUE(!right || thorough.result == 0);
    inPlace_ += right ? 1 : 0;
    byHistory_ += !right && thorough.result == 0 ? 1 : 0;
    findings_ += thorough.result != 0 ? 1 : 0;
  }

  template <typename Run>
  Outcome outcomeOf(CompletionBench& bench, Run run) {
    bench.takeLog();
    bench.data().miscompareSeen = false;
    ::testing::internal::CaptureStdout();
    ::testing::internal::CaptureStderr();
    Outcome outcome;
    outcome.result = run();
    std::fflush(stdout);
    outcome.output = ::testing::internal::GetCapturedStdout();
    outcome.errors = ::testing::internal::GetCapturedStderr();
    outcome.log = bench.takeLog();
    outcome.state = stateOf(bench);
    // The next round begins with nothing on record, so that the states stay short.
    const auto& records = bench.table().records();
    while (!records.empty()) {
      const uint64_t block = records.begin()->first;
      while (bench.refCount(block) != 0 && bench.table().references() != 0) {
        if (bench.table().readSkip(block); !bench.hasRecord(block)) {
          break;
        }
      }
      if (bench.hasRecord(block)) {
        const vdl::WaitRead* wait = records.find(block)->second.wait_read;
        wait == nullptr ? bench.table().hashClean(block) : void(bench.table().readFinished(wait->cmd_id, block, false));
      }
    }
    return outcome;
  }

  CompletionBench fast_;
  CompletionBench thorough_;
  uint32_t sector_ = 0;
  std::mt19937 random_;
  uint64_t first_ = 0;
  uint32_t step_ = 1;
  uint32_t blocks_ = 0;
  uint64_t id_ = 0;
  std::vector<std::vector<Bytes>> contents_;  ///< of each block, oldest first
  uint32_t inPlace_ = 0;
  uint32_t byHistory_ = 0;
  uint32_t findings_ = 0;
};

/// @param least how often each kind of judgement must have happened for the test to mean anything
void compareJudgements(const Setup& setup, const Mix& mix, uint32_t leastInPlace, uint32_t leastByHistory,
                       uint32_t leastFindings) {
  Twins twins(setup);
  for (uint32_t seed = 1; seed <= rounds; ++seed) {
    twins.round(mix, seed);
    if (::testing::Test::HasFailure()) {
      FAIL() << mix.name << ", seed " << seed;
    }
  }
  EXPECT_GE(twins.inPlace(), leastInPlace) << mix.name;
  EXPECT_GE(twins.byHistory(), leastByHistory) << mix.name;
  EXPECT_GE(twins.findings(), leastFindings) << mix.name;
}

TEST(JudgeInPlace, RightBlocksOfEveryKindBesideEachOtherNeedNoHistories) {
  constexpr uint32_t blocks = 70;
  constexpr uint64_t first = 1000;
  CompletionBench bench;
  bench.start();
  const uint32_t sector = bench.sectorBytes();
  ComparableReadData read;
  read.cmdId = 0x400;
  read.lba = first;
  read.xferLength = read.blockCount = blocks;
  ASSERT_EQ(read.data.reserve(size_t{blocks} * sector), 0);
  read.data.size = size_t{blocks} * sector;
  for (uint32_t i = 0; i < blocks; ++i) {
    const uint64_t lba = first + i;
    uint8_t* const block = read.data.data + size_t{i} * sector;
    if (i % 9 < 3) {
      const vdl::EmbedData embed{true, 0x300, lba};
      bench.table().writeIssued(0x300, lba, i % 64, embed);
      std::copy_n(vdl::agent::expectedSector(bench.step(), i % 64, embed), sector, block);
    } else if (i % 9 < 4) {
      bench.table().writeIssued(0x301, lba, block_num::zero, {});
      std::fill_n(block, sector, uint8_t{0});
    } else {
      std::fill_n(block, sector, static_cast<uint8_t>(i));
      bench.table().saveHash(0x302, lba, vdl::blockHash(block, block + sector), true);
    }
    bench.table().readIssued(read.cmdId, lba, true);
  }
  EXPECT_TRUE(vdl::agent::rightInPlace(bench.step(), read));
  for (uint32_t i = 0; i < blocks; ++i) {
    for (const uint32_t offset : {0U, 9U, 17U, 300U, sector - 1}) {
      uint8_t& byte = read.data.data[size_t{i} * sector + offset];
      byte ^= 0x10;
      EXPECT_FALSE(vdl::agent::rightInPlace(bench.step(), read)) << "block " << i << ", byte " << offset;
      byte ^= 0x10;
    }
  }
}

TEST(JudgeInPlace, NormalWritesAreJudgedAsByTheirHistories) {
  compareJudgements({}, {.name = "right"}, rounds / 2, 0, 0);
  compareJudgements({}, {.name = "wrong", .hardError = 10, .wrong = 5}, 50, 0, 50);
}

TEST(JudgeInPlace, AtomicWritesAreJudgedAsByTheirHistories) {
  compareJudgements({}, {.name = "right", .atomic = 50, .hash = 10}, 50, 50, 0);
  compareJudgements({}, {.name = "wrong", .atomic = 50, .hash = 10, .wrong = 5}, 50, 20, 50);
}

TEST(JudgeInPlace, HashesAreJudgedAsByTheirHistories) {
  compareJudgements({}, {.name = "right", .hash = 60}, rounds / 2, 0, 0);
  compareJudgements({}, {.name = "wrong", .atomic = 10, .hash = 60, .wrong = 5}, 50, 0, 50);
}

TEST(JudgeInPlace, InvalidatedBlocksAreJudgedAsByTheirHistories) {
  compareJudgements({}, {.name = "right", .invalidation = 40}, 50, 0, 20);
  compareJudgements({}, {.name = "wrong", .atomic = 20, .invalidation = 40, .wrong = 30}, 20, 1, 50);
}

TEST(JudgeInPlace, EverythingAtOnceIsJudgedAsByTheHistories) {
  const Mix mix{.name = "everything",
                .atomic = 20,
                .invalidation = 10,
                .hash = 15,
                .hardError = 10,
                .wrong = 2,
                .missingWait = 5,
                .oddSize = 10,
                .skip = 30};
  compareJudgements({}, mix, 50, 20, 50);
  compareJudgements({.protectionEnabled = true, .protectionBytes = 8}, mix, 50, 20, 50);
  compareJudgements({.blockSize = 4096}, mix, 50, 20, 50);
}

}  // namespace
}  // namespace benchtest
