#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "tests/model/AgentSubject.h"
#include "tests/model/ModelSubject.h"
#include "tests/model/Script.h"

namespace refmodel {

/// How a sequence ended.
enum class End : uint8_t {
  open,      ///< it may go on
  refused,   ///< the table refused something, which ends a test
  found,     ///< a read was judged wrong, which ends a test
  different  ///< the agent did not do what the model does
};

/// The model beside the agent in both of its ways.
class Comparison {
 public:
  Comparison();

  const Medium& medium() const { return medium_; }
  ModelSubject freshModel() const { return {medium_, statusLine_}; }
  FILE* realOutput() const { return streams_.realOutput(); }

  /// The agents forget everything.
  void restart();
  /// The agents carry an action out again that was compared before and was silent.
  void repeat(const Action& action);
  /// The agents carry an action out and must do what the model did.
  /// @return what is different; empty when nothing is
  std::string carryOut(const Action& action, const Verdict& expected);
  /// What is different in their tables.
  std::string compareTables(const ModelSubject& model, uint64_t first, uint64_t last, const Script& script);

  /// Plays a sequence, compares every action, and the tables now and then and at the end.
  End play(const Sequence& sequence);
  /// Of the sequence last played.
  const std::string& difference() const { return difference_; }

  uint64_t judgedReads() const { return judged_; }

 private:
  StandardStreams streams_;
  AgentSubject ofRuns_;
  AgentSubject ofBlocks_;
  Medium medium_;
  StatusLine statusLine_;
  std::string difference_;
  uint64_t judged_ = 0;
};

/// What is left of a verdict, said in a word.
End endOf(const Verdict& verdict);

}  // namespace refmodel
