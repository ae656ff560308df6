#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "host/explain/BlockDifference.h"
#include "host/explain/BlockStamp.h"
#include "host/fault/FaultClass.h"
#include "host/run/CommandJournal.h"

namespace corvane::host {

/// What a wrong block turned out to be.
enum class FindingKind : uint8_t {
  oldData,              ///< of this LBA, from before its last change
  otherLba,             ///< what belongs on another LBA of this drive
  otherDrive,           ///< what another drive of the test was given
  zeros,                ///< nothing but zeros where data had to be
  torn,                 ///< the first bytes of one content, the rest of another
  bitFlips,             ///< the right data but for a few bits
  protectionBytes,      ///< the right data with wrong protection bytes
  noise,                ///< nothing that this test ever wrote
  unreadable,           ///< could not be read any more
  writeSplice,          ///< a write that failed half way left it neither old nor new
  atomicOrder,          ///< an atomic segment that is partly old and partly new
  verifyAlarm,          ///< a verify found a difference that no read finds
  oldDataExpectedGone,  ///< data that had been declared invalid and is still there
  unknown,              ///< what was kept does not say
};

/// "old-data", "other-lba", "other-drive", "zeros", "torn", "bit-flips", "protection-bytes", "noise", "unreadable",
/// "write-splice", "atomic-order", "verify-alarm", "old-data-expected-gone", "unknown".
const char* findingKindName(FindingKind kind);

/// What a later read of the block returned.
enum class Reread : uint8_t {
  same,         ///< what the failing read had returned: it is on the medium
  asExpected,   ///< what had to be there all along: only the failing read was wrong
  different,    ///< something else
  overwritten,  ///< a later command of the test has changed the block, so that it says nothing
  failed,       ///< it could not be read
};

/// "same", "as expected", "different", "overwritten", "failed".
const char* rereadName(Reread reread);

/// A content that would have been accepted.
struct LegalOutcome {
  std::string text;  ///< for people: "the data of the write with command id 8"
  std::optional<uint64_t> commandId;
  std::optional<uint32_t> bucket;  ///< number of its sector in the agent's pool
};

/// A block near the finding, as it was read after the test.
struct NeighbourBlock {
  enum class State : uint8_t { expected, old, zeros, other, unknown, unreadable };

  uint64_t lba = 0;
  State state = State::unknown;
  std::optional<uint64_t> commandId;  ///< of the command that wrote what is there
};

/// "expected", "old", "zeros", "other", "unknown", "unreadable".
const char* neighbourStateName(NeighbourBlock::State state);

/// A finding, explained. Commands and blocks are copies.
struct Explanation {
  FindingKind kind = FindingKind::unknown;
  /// What may have done it, likeliest first.
  std::vector<FaultClass> suspects;
  std::vector<std::string> sentences;  ///< the whole for people, in order

  uint64_t lba = 0;                           ///< of the wrong block
  uint32_t sectorBytes = 0;                   ///< of a block, protection bytes included
  std::optional<JournalEntry> read;           ///< the read or verify that met it
  std::optional<BlockStamp> expected;         ///< what the reference says of itself
  std::optional<BlockStamp> observed;         ///< what the block says of itself
  std::optional<JournalEntry> expectedWrite;  ///< the last command that should have decided the content
  std::optional<JournalEntry> observedWrite;  ///< who wrote what is there
  uint64_t observedLba = 0;                   ///< where that one put it
  std::optional<std::string> observedDrive;   ///< name of the other drive that it was given to
  std::optional<uint64_t> tailId;             ///< of a torn block: who wrote its last part; `observedWrite` its first
  std::vector<LegalOutcome> legal;

  std::optional<BlockDifference> difference;
  std::vector<uint8_t> driveBlock;      ///< with protection bytes; empty: unknown
  std::vector<uint8_t> referenceBlock;  ///< the same
  std::optional<Reread> reread;
  std::vector<NeighbourBlock> neighbours;
  std::vector<JournalEntry> commands;  ///< over the neighbourhood, oldest first
  std::string history;                 ///< the agent's own table
};

}  // namespace corvane::host
