#pragma once

#include <array>
#include <cstdint>
#include <deque>
#include <string>
#include <vector>

#include "ConfigData.h"
#include "DriveData.h"
#include "tests/plugin/support_model/TableModel.h"

namespace randomhost {

/// What the framework holds ready for one `execute`.
struct Offer {
  // The finished command.
  uint32_t tag = 0xFFFFFFFF;
  uint32_t status = 0xFFFFFFFF;
  std::vector<uint8_t> sense;
  uint32_t deviceInterface = 0;
  bool readDataIsValid = false;
  bool dataShown = false;
  std::vector<uint8_t> data;
  // The next one.
  uint64_t lba = 0;
  uint32_t xferLength = 0;
  uint32_t atomicBound = 0;
  bool hostManaged = false;
  uint64_t writeLba = 0;
  uint32_t writeXferLength = 0;
  uint64_t minLba = 0;
  uint64_t maxLba = 0;
  uint64_t conditions = 0;
  uint32_t nextTag = 0xFFFFFFFF;  ///< what `peekNextFreeTag` answers
  // What happened outside.
  bool powerWasCut = false;
  bool deviceReset = false;
  bool mutexFails = false;
  std::vector<vdl::LBARange> zoneResets;     ///< empty when the agent does not listen
  std::vector<vdl::LBARange> invalidations;  ///< the same
};

/// What came of it.
struct Outcome {
  int result = 0;
  bool outOfRange = false;   ///< std::out_of_range left the callback
  bool systemError = false;  ///< std::system_error did
  std::vector<vdl::CommandTrace::TraceInfo> traced;
  uint64_t conditions = 0;
};

/// The agent's bookkeeping once more, kept beside it: which commands are in flight, which writes await their read-back,
/// who has a claim on which block. Plain vectors, walked from end to end, and the naive model of the table.
///
/// It is told what the framework offered and what the agent traced, follows the same rules in its own way, and says
/// what does not fit: a result, a trace entry, a list, a record. What only the random source decides (write or read,
/// the bucket, where a read slides to) is taken from the trace and held against what is possible. Data are judged where
/// one event alone may explain each block of a read, which is the rule; unfinished atomic writes, hashes and
/// invalidated blocks are left to tests of their own, and may be right or wrong here.
class Books {
 public:
  /// The configuration must outlive this; `agent` is looked into, never changed.
  Books(const vdl::Corvane::ConfigData& config, const vdl::DriveThread& thread, const vdl::Corvane::DriveData& agent);

  /// A test started with this result, and with or without a trace.
  void startTest(int result, bool traced);
  /// The callback was called between two steps; `traced` is what it traced.
  std::string deviceReset(const std::vector<vdl::CommandTrace::TraceInfo>& traced);
  /// @return an empty text, or what does not fit
  std::string execute(const Offer& offer, const Outcome& outcome);

  /// Compares all lists and scalars with the agent's. `wholeTable`: and every record, with its events and waits.
  std::string compare(bool wholeTable) const;

  /// Records in all lists: how much work a reset would be.
  uint64_t inFlight() const;
  bool miscompareSeen() const { return miscompareSeen_; }
  uint64_t records() const { return table_.records.size(); }
  /// Refusals of the table since the last call.
  uint64_t takeRefusals();

 private:
  using Entry = vdl::CommandTrace::TraceInfo;
  using Type = vdl::TraceType;
  struct Command {
    uint64_t id = 0;
    uint64_t linked = 0;  ///< the read against a write; the write that claimed a pre-read
    uint64_t lba = 0;
    uint32_t length = 0;
    uint32_t tag = 0;
    uint32_t bound = 0;
    bool readBack = false;
    bool atomic = false;
    bool splice = false;
    uint8_t retries = 0;
    bool expectMiscompare = false;
  };
  struct KeptRead {
    uint64_t id;
    uint64_t lba;
    uint32_t length;
    uint32_t count;
    uint64_t step;
    std::vector<uint64_t> pending;
    std::vector<uint8_t> data;
  };
  /// What a compare must come to; none when the answer needs the whole history.
  enum class Verdict { right, wrong, tooShort, open };
  struct Sense {
    bool hard = false;
    vdl::SenseParser::Kcq kcq;
    uint16_t uec = 0;
    uint8_t valid = 0;
    uint64_t information = 0;
  };
  /// When the drive was powered on last: so long ago that any toggle is due, a moment ago, or, as a test that starts
  /// may claim, in times to come.
  enum class PowerOn { longAgo, justNow, inFuture };
  struct Slot {
    uint64_t lba = 0;
    uint32_t length = 0;
    Type type = Type::Unknown;
  };

  uint64_t stride() const { return config_.useSkipCommands ? 2 : 1; }
  uint64_t endOf(uint64_t lba, uint32_t length) const;
  std::vector<uint64_t> blocksOf(uint64_t lba, uint32_t length) const;
  static std::vector<uint64_t> everyBlockOf(uint64_t lba, uint32_t length);
  Sense senseOf(const Offer& offer) const;

  // The step's parts, in their order. Each answers the result that the step must have so far.
  void absorbZoneReset(const vdl::LBARange& range);
  int absorbCompletion(const Offer& offer);
  int finishWrite(const Offer& offer, const Slot& slot);
  int finishPreRead(const Offer& offer, const Slot& slot);
  int finishRead(const Offer& offer, const Slot& slot);
  int keepRead(const Offer& offer, const Command& read, const Sense& sense);
  int finishVerify(const Offer& offer, const Slot& slot);
  int judgeVerify(const Command& verify, bool mayMiscompare, bool expected, bool reported, int tableResult);
  int compareReads(const Outcome& outcome);
  /// By the only event that may explain each block, with the agent's own pool.
  Verdict judge(const KeptRead& read) const;
  Verdict judgeBlock(const KeptRead& read, uint64_t lba, const uint8_t* block) const;
  std::string checkVerdict(Verdict verdict, int result) const;
  int prepare(const Offer& offer, const Outcome& outcome);
  int issueWrite(const Offer& offer, const Outcome& outcome);
  int issueAtomicWrite(const Offer& offer, const Outcome& outcome);
  int recordAtomicWrite(const Command& write, uint32_t bucket, uint64_t preReadToDrop);
  int issueRead(const Offer& offer, const Outcome& outcome);
  int issueRead(const Offer& offer, const Command& write, uint64_t id);
  int issueVerify(const Offer& offer, const Outcome& outcome, const Command& write, uint64_t id);
  void resetDevice();

  bool toggleIsDue() const;
  void apply(const vdl::Condition& condition);
  bool slidAsAllowed(const Offer& offer, const Command& write, const Entry& entry) const;

  void complain(const std::string& text);
  /// The next entry must be this; a tag's slot follows it.
  const Entry& expect(Type type, uint64_t lba, uint32_t length, uint64_t id, uint32_t tag);
  void expectEnded(Type type, const Slot& slot, const Command& command, const Offer& offer, const Sense& sense);
  bool nextIs(Type type) const { return next_ < traced_->size() && (*traced_)[next_].type == type; }

  const vdl::Corvane::ConfigData& config_;
  const vdl::DriveThread& thread_;
  const vdl::Corvane::DriveData& agent_;

  std::vector<Command> preReadFinished_, preReadSent_, readSent_, verifySent_, writeSent_;
  std::deque<Command> writeFinished_;
  std::vector<KeptRead> keptReads_;
  modeltest::Model table_;
  std::array<Slot, 1024> slots_{};
  uint64_t nextId_ = 1;
  bool hasTrace_ = false;
  bool skipGenOnList_ = true;
  bool readPhase_ = false;
  bool syncIssued_ = false;
  bool syncDone_ = false;
  bool miscompareSeen_ = false;
  bool failureSeen_ = false;
  PowerOn powerOn_ = PowerOn::longAgo;
  uint64_t tagBuffers_ = 0;
  bool firstExecute_ = false;

  // Of the step at hand.
  const std::vector<Entry>* traced_ = nullptr;
  size_t next_ = 0;
  uint64_t conditions_ = 0;
  uint64_t sent_ = 0;  ///< the length of the agent's list of writes in flight before the step
  std::string complaint_;
};

}  // namespace randomhost
