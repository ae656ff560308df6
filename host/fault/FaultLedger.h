#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "host/fault/FaultClass.h"

namespace corvane::host {

/// One block that an injection changed.
struct AlteredBlock {
  uint64_t lba = 0;
  std::vector<uint8_t> was;  ///< what an honest drive would return: the sector, protection bytes included
  std::vector<uint8_t> is;   ///< what the faulty drive returns; empty: the block cannot be read
};

/// How the content of an altered block differs.
struct Difference {
  size_t first = 0;  ///< byte
  size_t bytes = 0;  ///< how many differ
};

/// Of a block that can be read.
Difference differenceOf(const AlteredBlock& block);

/// One thing that a faulty drive did wrong, and what became of it.
struct Injection {
  FaultClass what = FaultClass::lostWrite;
  uint32_t drive = 0;    ///< counted from 0
  uint64_t command = 0;  ///< the drive's count of commands, from 1, when it was struck
  CommandKind kind = CommandKind::write;
  uint64_t lba = 0;  ///< of the struck command
  uint32_t blocks = 0;
  uint32_t lbaStep = 1;
  std::vector<AlteredBlock> altered;
  std::string note;  ///< what else there is to know, for people

  uint64_t delivered = 0;      ///< altered blocks handed out by reads or judged by verifies, each time
  uint64_t visible = 0;        ///< of those, the ones that somebody who compares what he wrote had to notice
  uint64_t visibleVerify = 0;  ///< of the visible ones, those that only a verify looked at
  uint64_t visiblePartly = 0;  ///< of the visible ones, those whose write another read had met in part before
  uint64_t firstDelivery = 0;  ///< command that handed an altered block out first; 0: none yet
  uint64_t overwritten = 0;    ///< altered blocks that a later good command replaced
  uint64_t interrupted = 0;    ///< altered blocks under a command that failed or was lost: from then on unknown
  uint64_t preReads = 0;       ///< deliveries to reads of the very range that an atomic write then took
  uint64_t blind = 0;          ///< deliveries that had to be noticed, but for what `blindness` says
  std::string blindness;       ///< why the old content under a torn atomic segment cannot be recognised

  /// One past the last LBA of the struck command.
  uint64_t endLba() const { return blocks == 0 ? lba : lba + uint64_t{blocks - 1} * lbaStep + 1; }
};

/// Everything that the faults of one drive did. One thread writes it; read it when the drive's test has ended.
class FaultLedger {
 public:
  using Id = size_t;

  explicit FaultLedger(uint32_t drive = 0) : drive_(drive) {}

  uint32_t drive() const { return drive_; }

  /// @return the injection's id, for the operations below
  Id add(Injection injection) {
    injection.drive = drive_;
    injections_.push_back(std::move(injection));
    return injections_.size() - 1;
  }

  /// A command was issued; the drive may see it later.
  void issued(const DriveCommand& command) { tell(&Listener::issued, command); }
  /// A command that changes the medium was issued, but a reset took it away before the drive saw it: nobody knows what
  /// its blocks hold, although the drive does.
  void neverSent(const DriveCommand& command) { tell(&Listener::neverSent, command); }

  /// Somebody who wants to be told of them.
  struct Listener {
    std::function<void(const DriveCommand&)> issued;
    std::function<void(const DriveCommand&)> neverSent;
  };
  /// What the listener uses outlives every command of the test.
  void listen(Listener listener) { listeners_.push_back(std::move(listener)); }

  Injection& at(Id id) { return injections_.at(id); }
  const std::vector<Injection>& injections() const { return injections_; }

 private:
  void tell(std::function<void(const DriveCommand&)> Listener::*what, const DriveCommand& command) {
    for (const Listener& listener : listeners_) {
      (listener.*what)(command);
    }
  }

  const uint32_t drive_;
  std::vector<Injection> injections_;
  std::vector<Listener> listeners_;
};

/// One line for people: class, command, blocks, and the first altered block with its first differing byte.
std::string injectionText(const Injection& injection);

}  // namespace corvane::host
