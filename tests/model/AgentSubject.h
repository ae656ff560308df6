#pragma once

#include <cstdint>
#include <list>
#include <string>
#include <vector>

#include "support/CompletionBench.h"
#include "tests/model/Action.h"
#include "tests/model/StandardStreams.h"

namespace refmodel {

/// The agent's table and its judgement of reads, inside the real framework.
class AgentSubject : public Subject {
 public:
  enum class Way : uint8_t {
    ofRuns,    ///< tells the table whole runs, and judges reads as a step of a test does: in place where it can
    ofBlocks,  ///< tells the table block by block, and judges every read by its blocks' histories
  };
  /// @param streams must be told of nothing else while an action is carried out
  AgentSubject(Way way, StandardStreams& streams);

  /// Forgets everything, the memory of the table included.
  void restart();

  Verdict carryOut(const Action& action) override;
  /// The same without looking at what came of it, for what is known to be silent.
  int repeat(const Action& action);

  vdl::AtomicHash& table() { return bench_.table(); }
  Medium medium();
  StatusLine statusLine();

 private:
  int tell(const Action& action);
  int tellOfRuns(const Action& action);
  int tellOfBlocks(const Action& action);
  int tellOfBlock(const Action& action, uint64_t lba, uint32_t block);
  void noteWrite(const Action& action);
  void take(const ReadData& read);
  int judgeInTheStep();
  int judgeByHistory();
  void look(Verdict& verdict);

  Way way_;
  StandardStreams& streams_;
  benchtest::CompletionBench bench_;
  uint64_t traced_ = 0;
  Bytes given_;                  ///< the host's memory: valid for one step
  std::list<ReadData> waiting_;  ///< of the way of blocks
  std::vector<uint64_t> inFlight_;
};

}  // namespace refmodel
