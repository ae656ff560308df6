#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "AtomicHash.h"
#include "tests/model/Verdict.h"

namespace refmodel {

/// A finished read whose data are to be judged as soon as no write that it overtook is in flight any more.
struct ReadData {
  uint64_t id = 0;
  uint64_t lba = 0;
  uint32_t blocks = 0;  ///< to compare, from the first one
  uint32_t length = 0;  ///< blocks that the command asked for
  uint32_t step = 1;
  std::vector<uint64_t> overtaken;  ///< ids of writes in flight, ascending
  Bytes bytes;
};

/// One thing that is told to the table, with everything settled: ids, LBAs and bytes.
struct Action {
  enum class What : uint8_t {
    write,       ///< a write, write-same or trim was issued: `content`
    atomic,      ///< an atomic write was issued: `content`, `bound`
    finish,      ///< a write is on the medium
    fail,        ///< a write failed from block number `from` on
    read,        ///< a read was issued; `expects` says of each block whether it pays a reference off
    endRead,     ///< a read ended without data; `flag`: it will be repeated
    giveData,    ///< a read ended with `data`
    keepHashes,  ///< a pre-read's `hashes` are kept; `flag`: with a reference
    skip,        ///< references are given back without a read
    drop,        ///< a pre-read's references are given back
    invalidate,  ///< `flag`: what was there is no longer expected
  };
  What what{};
  uint64_t id = 0;
  vdl::BlockRun run{0, 0, 1};
  vdl::WrittenContent content{0, {}};
  uint32_t bound = 1;  ///< blocks that an atomic write keeps together
  uint32_t from = 0;
  bool flag = false;
  bool landed = false;  ///< with this a write is no longer in flight
  std::vector<bool> expects;
  std::vector<uint64_t> hashes;
  ReadData data;
};

/// The segment in which block number `block` of an atomic write of `blocks` blocks lies.
inline vdl::AtomicSegment segmentOf(uint32_t block, uint32_t blocks, uint32_t bound) {
  const uint32_t segment = block / bound;
  const uint32_t rest = blocks - segment * bound;
  return {block % bound, rest < bound ? rest : bound, segment};
}

/// What an action is carried out on: the model, or the agent in one of its ways.
class Subject {
 public:
  virtual ~Subject() = default;
  /// Carries the action out, and then judges the reads that have become comparable, if it was not refused.
  virtual Verdict carryOut(const Action& action) = 0;
};

}  // namespace refmodel
