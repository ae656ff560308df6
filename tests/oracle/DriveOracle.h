#pragma once

#include <vector>

#include "tests/oracle/History.h"

namespace oracletest {

/// What the host does about commands that overlap, one of which writes.
enum class Order : uint8_t {
  any,      ///< nothing: those that are outstanding together may be carried out in any order, and a read beside them
            ///< may show any mixture in time
  asIssued  ///< each waits for those issued before it, so that they take effect in the order of issue
};

/// The images that a drive may return for a read, by trying everything that a drive may do.
///
/// A drive is this, and nothing of the agent's rules is in it:
/// - a plain write or a trim changes its blocks one by one, at any moments between its issue and its end;
/// - an atomic write changes its segments one by one; all blocks of a segment change in one moment;
/// - a good write has changed everything when it ends; of a failed one any part may be missing, for ever;
/// - a read looks at its blocks one by one, at any moments between its issue and its end, but sees a segment that
///   changes meanwhile either wholly before or wholly after;
/// - earlier reads have returned what the history says they showed, so whatever does not lead there did not happen.
///
/// @return the images in ascending order, each once; none when no drive can have shown what earlier reads showed
std::vector<Image> possibleImages(const History& history, uint8_t read, Order order);

}  // namespace oracletest
