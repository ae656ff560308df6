#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "tests/oracle/AgentJudge.h"
#include "tests/oracle/Differences.h"
#include "tests/oracle/History.h"

namespace oracletest {

/// What came out of it.
struct Tally {
  uint64_t histories = 0;
  uint64_t notPlayed = 0;  ///< of these: the agent writes elsewhere, see `AgentJudge::withReadsAhead`
  uint64_t reads = 0;      ///< histories with each of the images of their earlier reads
  uint64_t images = 0;     ///< judgements
  uint64_t bothAccept = 0;
  uint64_t bothReject = 0;
  struct Class {
    uint64_t images = 0;
    std::string example;  ///< with the fewest events
    std::size_t exampleSize = ~std::size_t{0};
  };
  std::map<Rules, Class> classes;
  std::string unexplained;  ///< the difference that ended it; empty: none

  /// Differences in which the rule takes part, alone or with others.
  uint64_t of(Rule rule) const;
  Tally& operator+=(const Tally& other);
};

/// For people: the figures, and an example of every class.
std::string describe(const Tally& tally);

/// Compares the agent with the drives over histories.
class Sweep {
 public:
  /// Judges every conceivable image of the last command, a read, after every image that a drive may return for the
  /// reads before it and that the agent lets pass. Over unknown content, where the agent reads by itself, too, each of
  /// the reads before it shows one image.
  ///
  /// @return false after an unexplained difference: the sweep is to end
  bool judge(const History& history);
  /// The same with one image for each of the reads before it.
  bool judgeOne(const History& history);

  const Tally& tally() const { return tally_; }

 private:
  bool judgeLast(const History& history, uint8_t read);
  void note(const History& history, uint8_t read, Image image, const Rules& rules);
  bool fail(const std::string& what);

  AgentJudge agent_;
  Tally tally_;
};

}  // namespace oracletest
