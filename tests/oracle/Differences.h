#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "tests/oracle/History.h"

namespace oracletest {

/// Why the agent may say something else than what follows from drives alone. Each is a rule of the agent's, and each
/// has a predicate here that is made of the history and the image only.
enum class Rule : uint8_t {
  issueOrder,        ///< stricter: commands that overlap take effect in the order of issue
  failedWrite,       ///< looser: under a failed plain write or trim a block may hold anything
  neverWritten,      ///< looser: nothing is expected of a block that was not written in this test
  readBack,          ///< looser: nothing is expected of a block all of whose writes were read back
  unstampedContent,  ///< looser: zeros, and what is known by its hash, say nothing of the blocks beside them
  earlierReads,      ///< looser: what a read showed is not held against a later one
};

inline constexpr std::size_t ruleCount = 6;
const char* nameOf(Rule rule);

/// The rules that explain a difference together; as few as possible.
using Rules = std::vector<Rule>;

/// Compares what the agent said of one image of a read with what drives can do.
class Comparison {
 public:
  Comparison(const History& history, uint8_t read);

  /// Whether some drive may return the image.
  bool possible(Image image) const;
  /// Whether one behind a host that keeps the order of overlapping commands may.
  bool possibleAsIssued(Image image) const;

  /// @return the rules that make the difference; none when there is no difference
  /// @throws std::domain_error when there is one that no rules explain
  Rules explain(Image image, bool accepted);

 private:
  const std::vector<Image>& possibleWithoutEarlierReads();
  /// The blocks about which the rule makes every image as good as another.
  /// @param images what is possible otherwise
  uint32_t freeBlocks(Rule rule, const std::vector<Image>& images, Image image) const;
  bool isPossibleUnder(const Rules& rules, Image image);
  bool agreesUpTo(uint32_t freeBlocks, const std::vector<Image>& images, Image image) const;

  const History& history_;
  uint8_t read_;
  std::vector<Image> possible_;
  std::vector<Image> asIssued_;
  std::optional<std::vector<Image>> forgetful_;
};

/// Every image that the judged read might show if nothing were forbidden: for each block what it held at the start or
/// what any write over it that was issued before the read ended sent; and each of these with one foreign block.
std::vector<Image> conceivableImages(const History& history, uint8_t read);

}  // namespace oracletest
