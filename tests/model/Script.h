#pragma once

#include <cstdint>
#include <vector>

#include "tests/model/Action.h"
#include "tests/model/Sequence.h"
#include "tests/plugin/support_model/TableModel.h"

namespace refmodel {

/// A command of a sequence, as far as it got.
struct Life {
  uint32_t command = 0;
  Kind kind = Kind::write;
  vdl::BlockRun run{0, 0, 1};
  vdl::WrittenContent content{0, {}};
  bool inFlight = true;
  bool good = false;     ///< a write that ended well
  bool hashed = false;   ///< a pre-read with references that are not given back
  bool skipped = false;  ///< a write whose references were given back without a read
};

/// Turns the steps of a sequence into actions in which everything is settled. A value.
class Script {
 public:
  Script(const Medium& medium, uint64_t base, uint64_t idBase) : medium_(&medium), base_(base), idBase_(idBase) {}

  /// The actions of an operation, and a note of what they do to commands; none when the operation names a command that
  /// is not in flight.
  ///
  /// @param table who owes what, for reads
  std::vector<Action> settle(const Operation& operation, const modeltest::Model& table);

  const std::vector<Life>& lives() const { return lives_; }
  uint64_t idOf(uint32_t command) const { return idBase_ + command; }

  Bytes bytesOf(const Content& content, uint64_t lba) const;
  /// The data of a read, block by block; blocks of which nothing is said are another block's.
  Bytes dataOf(const vdl::BlockRun& run, const Operation& operation) const;

 private:
  Life* find(uint32_t command);
  Action issue(const Operation& operation, const modeltest::Model& table);
  std::vector<Action> issueNew(const Operation& operation, const modeltest::Model& table);
  std::vector<Action> endWrite(Life& life, const Operation& operation);
  std::vector<Action> endRead(Life& life, const Operation& operation);
  std::vector<Action> giveData(const Life& life, const Operation& operation) const;
  std::vector<Action> keepHashes(Life& life, const Operation& operation) const;
  std::vector<Action> reset();
  Bytes writtenBy(uint32_t command, uint64_t lba) const;

  const Medium* medium_;
  uint64_t base_;
  uint64_t idBase_;
  std::vector<Life> lives_;  ///< in the order of issue
};

}  // namespace refmodel
