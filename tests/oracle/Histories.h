#pragma once

#include <cstdint>
#include <functional>
#include <random>

#include "tests/oracle/History.h"

namespace oracletest {

/// All histories of a few commands: every choice of commands, of endings, and of the order in which they are issued and
/// end. Of two writes the one with the lower number is issued first; else every history would come twice.
struct Bound {
  Base base = Base::written;
  uint8_t blocks = 3;
  uint8_t writes = 2;
  bool shorterBounds = true;    ///< atomic writes in several segments, too
  bool trims = false;           ///< the plain writes are trims
  bool readAmongWrites = true;  ///< the last read may be issued and end among the writes; else when all have ended
  bool partialReads = false;    ///< the last read covers any of the blocks; else all
  bool earlierRead = false;     ///< one more read of all blocks among the writes, and the last one when all has ended
  bool readBacks = false;       ///< the agent's own read-backs, one to all of them, ahead of the last read
  bool readBackIsLast = false;  ///< with these: the last of them is the judged read
};

/// Calls `judge` for each history of the bound, whose last command is the judged read, until it answers false.
///
/// @return how many histories there were
uint64_t forEachHistory(const Bound& bound, const std::function<bool(const History&)>& judge);

/// How many choices of one write a bound has: kind, blocks, segments and ending.
uint64_t writeChoices(const Bound& bound);

/// A history at random: 2 to 4 blocks, 3 or 4 writes of all kinds, up to two reads before the judged one.
History randomHistory(std::mt19937_64& random);

}  // namespace oracletest
