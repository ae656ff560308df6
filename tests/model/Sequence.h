#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "tests/model/Medium.h"

namespace refmodel {

/// What a command is.
enum class Kind : uint8_t {
  write,      ///< every block from a sector of its own, stamped
  unstamped,  ///< the same without stamps
  same,       ///< every block like the first one, its stamp included
  trim,
  atomic,
  preRead,
  read,
};

inline bool writes(Kind kind) { return kind != Kind::preRead && kind != Kind::read; }

/// Which blocks of a read pay off the reference of a write.
enum class Expects : uint8_t { whereOwed, everywhere, nowhere };

/// One step of a sequence, in words that stay right when other steps are taken out: commands are named by a number, and
/// what is said of a command that is not in flight is passed over.
struct Operation {
  enum class Act : uint8_t {
    issue,       ///< a command: `kind`, its blocks, and what its kind needs
    finish,      ///< a write is good
    fail,        ///< a write failed from block number `from` on
    giveData,    ///< a read is good: `data`
    end,         ///< a read was aborted, or was a verify, or has no valid data
    lose,        ///< a read was lost and will be repeated
    keepHashes,  ///< a pre-read is good: `data`; `flag`: no atomic write has claimed it
    skip,        ///< the references of blocks are given back
    drop,        ///< the references of a pre-read are given back
    invalidate,  ///< of blocks; `flag`: what was there is no longer expected
    reset,       ///< all that is in flight is lost
  };
  Act act = Act::reset;
  Kind kind = Kind::write;
  uint32_t command = 0;  ///< ascending in the order of issue, from 1
  uint64_t first = 0;    ///< from the sequence's base
  uint32_t blocks = 1;
  uint32_t step = 1;   ///< 2: every other block
  uint32_t bound = 1;  ///< blocks that an atomic write keeps together
  uint32_t bucket = 0;
  uint32_t from = 0;
  bool flag = false;
  Expects expects = Expects::whereOwed;
  std::vector<Content> data;  ///< of each block
  uint32_t leftOut = 0;       ///< blocks at the end of a read's data that are not to be compared
  uint32_t cut = 0;           ///< bytes missing at the end of a read's data
  bool trailers = false;      ///< there are 8 bytes of protection behind each block of a read's data

  bool operator==(const Operation&) const = default;
};

struct Sequence {
  uint64_t base = 0;    ///< LBA of block 0
  uint64_t idBase = 0;  ///< command n has the id idBase + n
  std::vector<Operation> operations;

  bool operator==(const Sequence&) const = default;
};

/// For people: one line for each operation, numbered from 1.
std::string describe(const Sequence& sequence);
std::string describe(const Sequence& sequence, const Operation& operation);

}  // namespace refmodel
