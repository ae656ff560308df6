#pragma once

#include <cstdint>
#include <map>
#include <string>

#include "DriveRun.h"

namespace randomhost {

/// What a run came to.
struct Report {
  uint64_t calls = 0;               ///< of execute
  uint64_t episodes = 0;            ///< configurations
  uint64_t lawful = 0;              ///< calls of execute by hosts that keep the contract
  std::map<int, uint64_t> results;  ///< of execute
  std::map<vdl::TraceType, uint64_t> issued;
  std::string failure;  ///< empty, or all that a person needs to repeat what went wrong
};

/// A host of the whole agent that makes nearly every mistake that a framework, a drive or a test can make, through the
/// nine callbacks alone, and holds what the agent does against its own books after every call.
///
/// A run is a sequence of episodes. An episode is one configuration with one to three drives at once, and a host that
/// knows some of the misdeeds or, one time in ten, none: then nothing may be found, either. Episode k of a run with
/// seed S is the first one of a run with seed S + k, so that what failed is repeated alone.
///
/// Judged after each call: the result, which must be the one that the books say and be documented; every text, on the
/// log and on the standard streams; the trace; all lists; the references of the table, and in every eighth call each
/// record with its events and waits; the conditions; "WriteData". Sanitizers judge the memory.
///
/// Never done, because it is undefined or ends the process by contract:
///  - a free tag of 1024 or more: the trace aborts the process (a test of its own shows it);
///  - a step before a test started, or after one that was refused: there is no trace and no pool, and the contract ends
///    the test;
///  - options, block size or protection bytes that change while drives are under test: the record is read-only then;
///  - two callbacks of one drive at once: each drive has one thread;
///  - sizes behind which fewer bytes stand: nobody could know. Missing bytes are shown as null;
///  - null for variables that every test provides, or for the log and the tags: the contract says never null;
///  - sectors below 272 bytes other than 0: a stamp with the longest id that a block can claim would not fit;
///  - lengths above 3000 blocks: work grows with the length, block by block;
///  - commands that run past LBA 2^64 - 1: no drive has such blocks;
///  - a pool or a trace of several gigabytes, and memory that runs out: the tests of allocation failures do that;
///  - a seed of 0, or a power toggle after seconds: both look at the clock, and could not be repeated.
class RandomHost {
 public:
  /// @param folder for the files of the agent; it is emptied now and then
  RandomHost(const vdl::AgentTable& agent, std::string folder) : agent_(agent), folder_(std::move(folder)) {}

  /// Runs episodes until there were so many calls of execute, or one went wrong.
  Report run(uint64_t calls, uint64_t seed);

 private:
  vdl::AgentTable agent_;
  std::string folder_;
};

}  // namespace randomhost
