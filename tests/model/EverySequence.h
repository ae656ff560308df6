#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <vector>

#include "tests/model/Comparison.h"

namespace refmodel {

/// Every sequence of up to a number of operations over three LBAs and three commands, each played by the model and the
/// agent and compared after its last operation: what is before it was a sequence of its own.
///
/// The operations: every command of a kind over every run of the LBAs, atomic writes with each bound that makes a
/// difference; good and each kind of bad end of every command in flight; the references of a write that ended and of a
/// pre-read given back; both kinds of invalidation; a reset. With the end of a read come all data: of each block as
/// before the test, as written or torn by each command that wrote there, or another block's.
///
/// What is the same but for names is played once:
/// - Commands are numbered as they are issued, and the lowest LBA touched is the first one.
/// - The data of a read are chosen when it is judged, since nobody looks earlier; behind the first block that is found
///   wrong they are another block's. A sequence goes on behind one choice of data that is right, because the table
///   never learns the data.
/// - Nothing follows a refusal or a finding, which end a test, or a step that changes nothing.
class EverySequence {
 public:
  static constexpr size_t mostLength = 6;
  static constexpr uint32_t lbas = 3;
  static constexpr uint32_t commands = 3;

  /// Sequences of each length up to `knownLength`: a way to make them that loses some would look like success.
  static constexpr size_t knownLength = 6;
  static constexpr std::array<uint64_t, knownLength + 1> howMany{0, 20, 1197, 62079, 1358434, 18553037, 183992871};

  struct Counts {
    std::array<uint64_t, mostLength + 1> sequences{};  ///< by their length
    uint64_t judgements = 0;                           ///< ended by the judgement of reads
    uint64_t findings = 0;
    uint64_t refusals = 0;
  };

  explicit EverySequence(size_t length) : length_(length) {}

  /// @return false when a sequence made a difference, and then it was the last one
  bool run();
  /// Only counts them.
  void count();

  const Counts& counts() const { return counts_; }
  const std::string& difference() const { return difference_; }

 private:
  struct Stage {
    ModelSubject model;
    Script script;
  };
  /// One way on from a stage.
  struct Next {
    const Stage& from;
    Script script;
    std::vector<Action> actions;
    std::vector<uint64_t> ready;               ///< ids of the reads that are judged now
    std::vector<std::vector<Content>> chosen;  ///< data of the first of them
  };

  void visitAll(Comparison& comparison);
  void visit(const Stage& stage);
  void goOn(const Stage& stage, const Operation& operation);
  std::vector<Operation> options(const Stage& stage) const;
  void addIssues(std::vector<Operation>& all, uint32_t command) const;
  void addEnds(std::vector<Operation>& all, const Life& life) const;
  void addReturns(std::vector<Operation>& all, const Life& life) const;

  /// Plays every choice of data for the ready reads that have none yet; the next one's begin with `data`.
  ///
  /// @param goesOn set when a sequence went on behind a choice
  void chooseData(Next& next, std::vector<Content> data, bool& goesOn);
  std::vector<Content> choices(const Script& script, uint64_t lba) const;
  static Bytes bytesOf(const Next& next, uint64_t id, const std::vector<Content>& data);
  Verdict judgedBeginning(const Next& next, const std::vector<Content>& data) const;
  void playChosen(Next& next, bool& goesOn);
  void playAndGoOn(const Next& next, ModelSubject& model, bool& goesOn);
  /// Plays one sequence; true when it may go on.
  bool play(const Next& next, ModelSubject& model);
  void compare(const Next& next, const ModelSubject& model, const std::vector<Verdict>& verdicts);
  bool canonical() const;

  size_t length_;
  Comparison* comparison_ = nullptr;
  bool comparing_ = false;
  const Medium* medium_ = nullptr;
  uint64_t base_ = 0;
  Counts counts_;
  std::string difference_;
  std::vector<Operation> operations_;  ///< of the sequence under way
  std::vector<Action> actions_;        ///< all of them
};

}  // namespace refmodel
