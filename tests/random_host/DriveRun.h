#pragma once

#include <cstdint>
#include <deque>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "Books.h"
#include "Plan.h"
#include "vdl/Agent.h"

namespace randomhost {

/// What was called, for those who must repeat it by hand.
struct Note {
  const char* callback = "";
  size_t drive = 0;
  uint32_t tag = 0;
  uint32_t status = 0;
  uint64_t lba = 0;
  uint32_t xferLength = 0;
  uint32_t nextTag = 0;
  uint64_t conditions = 0;
  int result = 0;
  vdl::TraceType issued = vdl::TraceType::Unknown;
};

/// One drive of an episode: the framework's side, a drive in memory, the books, and the calls of the agent.
///
/// Every call answers an empty text, or what was wrong with what the agent did.
class DriveRun {
 public:
  DriveRun(const vdl::AgentTable& agent, const vdl::Corvane::ConfigData& config, const Plan& plan, Dice& dice,
           StandardStreams& streams);
  ~DriveRun();
  DriveRun(const DriveRun&) = delete;
  DriveRun& operator=(const DriveRun&) = delete;

  /// Whether the agent made a record for the drive.
  bool registered() const { return framework_.state.driveData != nullptr; }
  /// Whether steps may follow: the latest start succeeded.
  bool started() const { return started_; }
  /// Nothing new can come of further steps, or they would only cost time.
  bool exhausted() const;

  std::string initDriveData();
  std::string startTest();
  std::string execute(bool wholeTable);
  std::string deviceReset();
  std::string stopTest();

  const Note& note() const { return note_; }

 private:
  using Type = vdl::TraceType;
  /// A command at the drive.
  struct Sent {
    uint32_t tag;
    Type type;
    uint64_t lba;
    uint32_t length;
    std::vector<uint8_t> data;  ///< what a read got
    bool differs = false;       ///< a verify's data are not the drive's
    bool torn = false;          ///< only the first blocks of a write are on the medium
  };

  vdl::Corvane::DriveData& data() const { return *static_cast<vdl::Corvane::DriveData*>(framework_.state.driveData); }
  bool does(Misdeed misdeed, uint64_t oneIn) { return plan_.does(misdeed) && dice_.oneIn(oneIn); }
  uint64_t sector() const { return plan_.blockSize + (plan_.protection ? 8U : 0U); }
  uint64_t stride() const { return config_.useSkipCommands ? 2 : 1; }
  bool optional() const { return !plan_.maps.withoutOptional; }

  // What one step is offered.
  void offerCommand(Offer& offer);
  void offerConditions(Offer& offer);
  void offerOutsideEvents(Offer& offer);
  void offerRanges(Offer& offer);
  void offerCompletion(Offer& offer);
  void offerFinished(Offer& offer, const Sent& sent);
  void offerReadData(Offer& offer, const Sent& sent);
  void offerSense(Offer& offer);
  void offerTag(Offer& offer);
  void publish(const Offer& offer);
  std::vector<uint8_t> drawSense();
  std::optional<size_t> chooseFinished();

  // What the host does with what the agent prepared.
  std::string issue(const Outcome& outcome, const Offer& offer);
  void keepMedium(const Sent& sent, uint32_t blocks);
  std::vector<uint8_t> readMedium(uint64_t lba, uint32_t length);
  std::string checkWriteData(const Sent& sent) const;
  void giveTagBack(uint32_t tag);
  bool overlaps(const Sent& left, const Sent& right) const;
  bool overlapsAnySent(uint64_t first, uint64_t end) const;

  uint64_t traced() const { return data().trace == nullptr ? 0 : data().trace->count(); }
  std::vector<vdl::CommandTrace::TraceInfo> tracedSince(uint64_t count) const;
  /// Judges and forgets what was said since the last call.
  std::string judgeTexts();
  std::string judgeStep(const Offer& offer, const Outcome& outcome, bool wholeTable);

  const vdl::AgentTable& agent_;
  const vdl::Corvane::ConfigData& config_;
  const Plan& plan_;
  Dice& dice_;
  StandardStreams& streams_;
  Framework framework_;
  std::unique_ptr<Books> books_;
  std::map<uint64_t, std::vector<uint8_t>> medium_;
  std::vector<Sent> sent_;
  std::vector<Sent> finished_;  ///< completed before
  std::vector<Line> lines_;
  std::vector<uint8_t> noise_;
  Note note_;
  bool started_ = false;
  bool powerCut_ = false;
  bool failed_ = false;  ///< a step failed; a good host would have stopped
};

}  // namespace randomhost
