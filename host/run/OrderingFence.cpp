#include "host/run/OrderingFence.h"

#include <algorithm>
#include <bit>
#include <cassert>
#include <limits>
#include <stdexcept>

#include "host/drive/DriveError.h"
#include "vdl/SenseParser.h"

namespace corvane::host {
namespace {

constexpr uint32_t fewCommands = 8;      ///< to look at so many costs less than to count one in its regions
constexpr uint32_t patientAttempts = 8;  ///< after these a pause comes before each further attempt
constexpr uint64_t retryPauseUs = 1000;
constexpr uint64_t noAttempt = 0;  ///< instead of an id, while the drive does not have the command
constexpr uint8_t senseKeyUnitAttention = 6;
constexpr uint32_t shortestSense = 8;

bool isUnitAttention(const DriveCompletion& completion) {
  vdl::SenseParser::Kcq kcq;
  return completion.status == scsi_status::checkCondition && completion.senseBytes >= shortestSense &&
         vdl::SenseParser::getKey(completion.sense.data(), kcq) == 0 && kcq.key == senseKeyUnitAttention;
}

/// What a drive that cannot take a command says; null when it answered the command itself.
const char* refusal(const DriveCompletion& completion) {
  switch (completion.status) {
    case scsi_status::busy:
      return "busy";
    case scsi_status::taskSetFull:
      return "task set full";
    case scsi_status::reservationConflict:
      return "reservation conflict";
    default:
      return isUnitAttention(completion) ? "unit attention" : nullptr;
  }
}

std::string describe(const DriveCommand& command) {
  std::string text = commandKindName(command.kind);
  if (command.kind != CommandKind::syncCache) {
    text += " of " + std::to_string(command.blocks) + " blocks at LBA " + std::to_string(command.lba);
  }
  return text + " (tag " + std::to_string(command.tag) + ")";
}

}  // namespace

OrderingFence::OrderingFence(Drive& drive, uint32_t tags, DriveCounters& counters, HostClock& clock)
    : drive_(drive),
      counters_(counters),
      clock_(clock),
      zoneBlocks_(drive.capabilities().hostManaged ? drive.geometry().zoneBlocks : 0),
      nodes_(tags),
      first_(tags),
      end_(tags),
      tag_(tags),
      writes_(tags),
      regions_(tags) {
  if (tags == 0 || tags > TagPool::maxTags) {
    throw std::invalid_argument("an ordering fence has 1 to 1024 tags");
  }
  toSend_.reserve(tags);
  toRetry_.reserve(tags);
}

void OrderingFence::submit(const DriveCommand& command) {
  Node& node = nodes_.at(command.tag);
  if (node.outstanding) {
    throw std::logic_error("tag " + std::to_string(command.tag) + " is issued again before it completed");
  }
  const bool sync = command.kind == CommandKind::syncCache;
  const uint64_t first = sync ? 0 : command.lba;
  const uint64_t end = sync ? std::numeric_limits<uint64_t>::max() : command.endLba();
  const uint8_t writes = sync || changesMedium(command.kind) ? 1 : 0;
  const bool inZoneOrder = zoneBlocks_ != 0 && command.kind == CommandKind::write;

  node.command = command;
  node.waitsFor = 0;
  node.attempts = 0;
  if ((count_ != 0 && mayConflict(first, end)) || inZoneOrder) {
    holdBehindConflicting(node, first, end, writes);
  }
  node.outstanding = true;
  node.position = count_;
  first_[count_] = first;
  end_[count_] = end;
  tag_[count_] = command.tag;
  writes_[count_] = writes;
  ++count_;
  node.command.id = nextId_++;
  if (node.waitsFor == 0) {
    pass(node);
  } else {
    ++held_;
    counters_.heldBack.add(1);
  }
}

bool OrderingFence::mayConflict(uint64_t first, uint64_t end) {
  if (!countsRegions_) {
    if (count_ < fewCommands) {
      return true;
    }
    // No region holds an old count: `remove` and `forgetAll` stop the counting only when nothing is left.
    countsRegions_ = true;
    for (uint32_t i = 0; i < count_; ++i) {
      enterRegions(first_[i], end_[i], i);
    }
  }
  return enterRegions(first, end, count_);
}

bool OrderingFence::enterRegions(uint64_t first, uint64_t end, uint32_t others) {
  if (regions_.isTooLong(first, end)) {
    regions_.restart(first, end);
    for (uint32_t i = 0; i < others; ++i) {
      regions_.add(first_[i], end_[i]);
    }
  }
  return regions_.add(first, end);
}

void OrderingFence::holdBehindConflicting(Node& node, uint64_t first, uint64_t end, uint8_t writes) {
  const uint32_t tag = node.command.tag;
  const bool inZoneOrder = zoneBlocks_ != 0 && node.command.kind == CommandKind::write;
  for (uint32_t i = 0; i < count_; ++i) {
    const bool overlaps = first_[i] < end && first < end_[i] && (writes_[i] | writes) != 0;
    if (overlaps || (inZoneOrder && isUnsentWriteTo(first / zoneBlocks_, nodes_[tag_[i]]))) {
      Node& before = nodes_[tag_[i]];
      before.successors[tag / 64] |= uint64_t{1} << (tag % 64);
      before.hasSuccessors = true;
      ++node.waitsFor;
    }
  }
}

bool OrderingFence::isUnsent(uint32_t tag) const {
  const Node& node = nodes_[tag];
  return node.outstanding && (node.waitsFor != 0 || node.command.id == noAttempt);
}

bool OrderingFence::isUnsentWriteTo(uint64_t zone, const Node& node) const {
  return node.command.kind == CommandKind::write && isUnsent(node.command.tag) &&
         node.command.lba / zoneBlocks_ == zone;
}

void OrderingFence::pass(Node& node) {
  if (lost_) {
    node.command.id = noAttempt;
    throw DriveConnectionLost(*lost_);
  }
  giveToDrive(node);
}

void OrderingFence::giveToDrive(Node& node) {
  node.sentUs = clock_.coarseUs();
  drive_.submit(node.command);
}

void OrderingFence::send(Node& node) {
  // The drive must not take a late answer to an earlier attempt for the one to this.
  node.command.id = nextId_++;
  giveToDrive(node);
}

bool OrderingFence::poll(DriveCompletion& out) {
  if (lost_) {
    throw DriveConnectionLost(*lost_);
  }
  if (!toRetry_.empty()) {
    sendAgain();
  }
  while (drive_.poll(out, false)) {
    Node* node = out.tag < nodes_.size() ? &nodes_[out.tag] : nullptr;
    if (node == nullptr || !node->outstanding || node->command.id != out.id || node->waitsFor != 0) {
      counters_.stray.add(1);
      continue;
    }
    if (out.status != scsi_status::good && refusal(out) != nullptr) {
      keepForRetry(*node, out);
      continue;
    }
    remove(out.tag);
    if (node->hasSuccessors) {
      releaseSuccessors(*node);
    }
    return true;
  }
  return false;
}

bool OrderingFence::waitUpTo(uint64_t microseconds) {
  return lost_.has_value() || (toRetry_.empty() && drive_.waitUpTo(microseconds));
}

void OrderingFence::keepForRetry(Node& node, const DriveCompletion& completion) {
  counters_.retried.add(1);
  if (++node.attempts >= maxAttempts) {
    throw DriveError("the drive answered '" + std::string(refusal(completion)) + "' to a " + describe(node.command) +
                     " " + std::to_string(maxAttempts) +
                     " times; check that it is ready and that no other initiator uses or reserves it");
  }
  // So that a second answer to this one is a stray.
  node.command.id = noAttempt;
  toRetry_.push_back(completion.tag);
}

void OrderingFence::sendAgain() {
  const bool pause = std::any_of(toRetry_.begin(), toRetry_.end(),
                                 [this](uint32_t tag) { return nodes_[tag].attempts > patientAttempts; });
  if (pause) {
    clock_.pause(retryPauseUs);
  }
  for (const uint32_t tag : toRetry_) {
    send(nodes_[tag]);
  }
  toRetry_.clear();
}

void OrderingFence::remove(uint32_t tag) {
  Node& node = nodes_[tag];
  const uint32_t last = --count_;
  const uint32_t hole = node.position;
  if (countsRegions_) {
    regions_.remove(first_[hole], end_[hole]);
    countsRegions_ = last != 0;
  }
  first_[hole] = first_[last];
  end_[hole] = end_[last];
  tag_[hole] = tag_[last];
  writes_[hole] = writes_[last];
  nodes_[tag_[hole]].position = hole;
  node.outstanding = false;
}

void OrderingFence::releaseSuccessors(Node& node) {
  toSend_.clear();
  for (size_t word = 0; word < node.successors.size(); ++word) {
    for (uint64_t bits = node.successors[word]; bits != 0; bits &= bits - 1) {
      const auto tag = static_cast<uint32_t>(word * 64 + static_cast<size_t>(std::countr_zero(bits)));
      assert(nodes_[tag].outstanding && nodes_[tag].waitsFor != 0);
      if (--nodes_[tag].waitsFor == 0) {
        toSend_.push_back(tag);
      }
    }
  }
  node.successors = {};
  node.hasSuccessors = false;
  if (toSend_.size() > 1) {
    std::sort(toSend_.begin(), toSend_.end(),
              [this](uint32_t a, uint32_t b) { return nodes_[a].command.id < nodes_[b].command.id; });
  }
  held_ -= static_cast<uint32_t>(toSend_.size());
  sendReleased();
}

void OrderingFence::sendReleased() {
  for (const uint32_t tag : toSend_) {
    if (lost_) {
      nodes_[tag].command.id = noAttempt;
      continue;
    }
    try {
      giveToDrive(nodes_[tag]);
    } catch (const DriveConnectionLost& lost) {
      // What ended before it did end, and has to be told first.
      lost_ = lost.what();
    }
  }
}

void OrderingFence::forgetAll() {
  for (uint32_t i = 0; i < count_; ++i) {
    Node& node = nodes_[tag_[i]];
    node.outstanding = false;
    node.successors = {};
    node.hasSuccessors = false;
  }
  regions_.clear();
  countsRegions_ = false;
  toRetry_.clear();
  lost_.reset();
  count_ = 0;
  held_ = 0;
}

std::string OrderingFence::describeOutstanding(size_t most) const {
  std::vector<uint32_t> tags(tag_.begin(), tag_.begin() + count_);
  std::sort(tags.begin(), tags.end(),
            [this](uint32_t a, uint32_t b) { return nodes_[a].command.id < nodes_[b].command.id; });
  std::string text;
  for (size_t i = 0; i < tags.size() && i < most; ++i) {
    text += (i == 0 ? "" : ", ") + describe(nodes_[tags[i]].command);
  }
  if (tags.size() > most) {
    text += " and " + std::to_string(tags.size() - most) + " more";
  }
  return text;
}

}  // namespace corvane::host
