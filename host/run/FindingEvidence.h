#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "host/drive/Drive.h"
#include "host/run/CommandJournal.h"

namespace corvane::host {

/// What is known about a data failure when its drive's test has ended, for whoever wants to explain it. A plain value.
struct FindingEvidence {
  int32_t agentStatus = 0;  ///< -1046 miscompare, -1062 write splice, -1063 atomic order
  std::string agentError;   ///< the agent's first error line
  uint64_t lba = 0;         ///< that the agent named
  uint64_t foundUs = 0;     ///< of the journal's clock
  uint64_t foundAfter = 0;  ///< number of the last command that had been issued then

  DriveGeometry geometry;
  bool embedded = true;  ///< every written block carries its LBA and command id; else only those of atomic writes do

  std::vector<uint8_t> driveBlock;      ///< as the agent compared it; empty: it did not say
  std::vector<uint8_t> referenceBlock;  ///< what it had to be; empty: not known byte by byte
  std::optional<uint64_t> readId;       ///< the agent's id of the read or verify that met it
  std::string history;                  ///< the agent's table of what was legal; empty: it left none

  /// What a verify that ended the test had compared the drive with: sectors from `verifyLba` on.
  std::vector<uint8_t> verifyData;
  uint64_t verifyLba = 0;

  /// The neighbourhood as it was read after the test, block by block; an unreadable block is empty.
  uint64_t rereadFirst = 0;
  std::vector<std::vector<uint8_t>> reread;

  /// The agent's pool of sectors, from which all data is made; empty: it did not show it.
  std::vector<uint8_t> pool;
  std::shared_ptr<const CommandJournal> journal;

  /// The block as it was read after the test; null: outside the neighbourhood.
  const std::vector<uint8_t>* rereadOf(uint64_t block) const {
    return block >= rereadFirst && block - rereadFirst < reread.size() ? &reread[block - rereadFirst] : nullptr;
  }
};

/// The blocks around a finding that are worth reading again: those of the newest read and of the newest change that
/// covered it, and some on both sides.
struct RereadRange {
  uint64_t firstLba = 0;
  uint64_t endLba = 0;  ///< excluded
};
RereadRange rereadRange(const CommandJournal& journal, uint64_t lba, uint64_t firstLba, uint64_t endLba);

/// What the agent left in its files: the id of the read in the command-sequence report, the table of legal outcomes,
/// and both blocks. Files that cannot be read leave their part empty.
void readAgentFiles(FindingEvidence& evidence, const std::vector<std::string>& reports,
                    const std::vector<std::string>& dumps);

}  // namespace corvane::host
