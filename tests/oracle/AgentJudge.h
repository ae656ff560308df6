#pragma once

#include <functional>
#include <ios>
#include <map>
#include <memory>
#include <optional>
#include <vector>

#include "support/CompletionBench.h"
#include "tests/oracle/History.h"

namespace oracletest {

/// While it lives nothing reaches standard output and error: the agent explains each of its findings there, and nobody
/// wants to read millions of them.
class Silence {
 public:
  Silence();
  ~Silence();
  Silence(const Silence&) = delete;
  Silence& operator=(const Silence&) = delete;

 private:
  int out_;
  int err_;
  std::ios_base::fmtflags flags_;
};

/// What the agent says of one image of a read: 0, or the status of its finding.
struct Judgement {
  Image image;
  int32_t status;
  bool accepted() const { return status == 0; }
};

/// The agent itself, inside the real framework, driven through a history command by command: it prepares every write,
/// read ahead and read-back, absorbs every completion, and judges every read from its bytes.
class AgentJudge {
 public:
  AgentJudge();
  AgentJudge(const AgentJudge&) = delete;
  AgentJudge& operator=(const AgentJudge&) = delete;

  /// Plays the history and answers what the agent says of each image of the judged read, in the order given.
  ///
  /// A judged look is issued once for each image, all of them at the same moment, so that every image meets the same
  /// history; of a judged read-back only one image can be asked about.
  ///
  /// @return as many judgements as images; none when the agent found fault with an earlier read
  /// @throws std::runtime_error when the agent does not do what the history says, or fails otherwise
  std::vector<Judgement> judge(const History& history, uint8_t read, const std::vector<Image>& images);

  /// The history as the agent plays it: with its own reads ahead of atomic writes over content that it does not know,
  /// each of them at once before its write, and with images for all reads but the judged one. `choose` answers what
  /// such a read shows, given the history up to its end, and its number.
  ///
  /// @return nothing when the agent plays another history: with a read ahead left over, because its blocks became known
  ///         by itself before the write that it was for, the next atomic write goes where that was
  std::optional<History> withReadsAhead(const History& history, uint8_t read,
                                        const std::function<Image(const History&, uint8_t read)>& choose);

 private:
  using Bytes = benchtest::Bytes;

  void restart();
  void setUp(const History& history);
  void tearDown();
  void issue(const Command& command, uint8_t number);
  void issueWrite(const Command& command, uint8_t number);
  void issueReadAhead(const Command& command, uint8_t number);
  void issueLook(const Command& command, uint8_t number);
  void keepWritten(const Command& command, uint8_t number);
  void end(const Command& command, uint8_t number, Image image);
  void endLook(const Command& command, uint64_t id, Image image);
  Bytes bytesOf(const Command& command, Image image) const;
  const uint8_t* sectorOf(uint32_t block, Value value) const;
  /// Runs something that may judge reads, and then judges all that can be judged; notes every verdict by command id.
  void settle(uint64_t newRead, const std::function<int32_t()>& step);

  std::unique_ptr<benchtest::CompletionBench> bench_;
  uint64_t played_ = 0;  ///< histories since the last restart
  uint64_t origin_ = 0;  ///< LBA of block 0
  Bytes base_;
  Bytes strange_;
  Bytes zero_;
  std::array<Bytes, maxCommands> written_;  ///< what each write sent
  std::array<uint8_t, maxCommands> firstOf_{};
  std::array<uint64_t, maxCommands> ids_{};
  std::map<uint64_t, int32_t> verdicts_;  ///< by command id
};

}  // namespace oracletest
