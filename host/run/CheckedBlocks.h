#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

namespace corvane::host {

/// Why nobody could tell whether a block that was read or verified is right.
enum class Uncheckable : uint8_t {
  notAwaited,         ///< nobody wrote it, or its read-back has been, or a slid read left it out
  writeFailed,        ///< the latest write over it failed or was lost
  zoneReset,          ///< what a zone holds after its reset is unknown
  invalidated,        ///< only its old content would be noticed
  atomicOverUnknown,  ///< an atomic write of unknown end over unknown content: damage is noticed only in the new
                      ///< content
  probe,              ///< the read looked only whether a failed write left the blocks readable
  commandFailed,      ///< the read or verify itself
  verifyMayDiffer,    ///< a verify some of whose blocks may hold something else
  noData,             ///< the read brought none
  untold              ///< the commands do not show what the agent waits for
};

inline constexpr size_t uncheckableReasons = 10;

/// The reason in words, for people and for documents.
const char* uncheckableText(Uncheckable reason);

/// What it was worth to look at one block.
struct BlockWorth {
  uint8_t outcomes = 0;                          ///< contents that would have been accepted; 0: not checkable
  Uncheckable reason = Uncheckable::notAwaited;  ///< of a block that is not checkable

  friend bool operator==(const BlockWorth&, const BlockWorth&) = default;
};

/// What the looks at blocks were worth: every block of every delivered read or verify, whatever its status, that was
/// no read ahead of an atomic write. The counts together are these blocks.
struct CheckedBlocks {
  static constexpr uint8_t mostOutcomes = 32;  ///< more count as so many

  uint64_t oneOutcome = 0;                                   ///< only one content would have been accepted
  std::array<uint64_t, mostOutcomes + 1> severalOutcomes{};  ///< by how many would have been accepted, from 2
  std::array<uint64_t, uncheckableReasons> notCheckable{};   ///< by `Uncheckable`

  uint64_t checkedAgainstSeveral() const;
  uint64_t uncheckable() const;
  /// All blocks.
  uint64_t total() const { return oneOutcome + checkedAgainstSeveral() + uncheckable(); }
  CheckedBlocks& operator+=(const CheckedBlocks& other);

  friend bool operator==(const CheckedBlocks&, const CheckedBlocks&) = default;
};

}  // namespace corvane::host
