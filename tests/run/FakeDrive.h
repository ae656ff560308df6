#pragma once

#include <algorithm>
#include <cstring>
#include <deque>
#include <functional>
#include <stdexcept>
#include <string>
#include <vector>

#include "host/drive/Drive.h"

namespace corvane::host::testing {

/// A drive that answers when and how the test says, and checks that its caller keeps the ordering promise.
class FakeDrive : public Drive {
 public:
  FakeDrive() {
    shape.blocks = 100'000;
    offers = {.atomicWrite = true,
              .writeSame = true,
              .trim = true,
              .verify = true,
              .syncCache = true,
              .powerToggle = true,
              .deviceReset = true,
              .volatileCache = false};
  }

  const DriveGeometry& geometry() const override { return shape; }
  const DriveCapabilities& capabilities() const override { return offers; }
  std::string description() const override { return "fake drive"; }
  uint32_t maxOutstanding() const override { return most; }

  void submit(const DriveCommand& command) override {
    for (const DriveCommand& other : waiting) {
      if (conflict(other, command)) {
        throw std::logic_error("conflicting commands are outstanding together");
      }
    }
    waiting.push_back(command);
    submitted.push_back(command);
    if (onSubmit) {
      onSubmit(command);
    }
  }

  bool poll(DriveCompletion& out, bool) override {
    ++polls;
    if (onPoll) {
      onPoll();
    }
    if (answers.empty()) {
      return false;
    }
    out = answers.front();
    answers.pop_front();
    return true;
  }

  void reset() override {
    ++resets;
    waiting.clear();
  }
  void powerCycle() override {
    ++powerCycles;
    waiting.clear();
  }

  void sendQueued() override {
    if (onSendQueued) {
      onSendQueued();
    }
  }

  bool waitUpTo(uint64_t microseconds) override {
    if (onWait) {
      onWait(microseconds);
    }
    return onWait != nullptr;
  }

  static bool conflict(const DriveCommand& a, const DriveCommand& b) {
    if (a.kind == CommandKind::syncCache || b.kind == CommandKind::syncCache) {
      return true;
    }
    return (changesMedium(a.kind) || changesMedium(b.kind)) && a.lba < b.endLba() && b.lba < a.endLba();
  }

  /// Lets a waiting command end; its place in `waiting` is given up.
  void complete(size_t index, uint32_t status = scsi_status::good, std::vector<uint8_t> sense = {}) {
    const DriveCommand command = waiting.at(index);
    waiting.erase(waiting.begin() + static_cast<std::ptrdiff_t>(index));
    DriveCompletion completion;
    completion.tag = command.tag;
    completion.id = command.id;
    completion.status = status;
    completion.bytesTransferred = status == scsi_status::good ? command.dataBytes : 0;
    completion.senseBytes = static_cast<uint32_t>(sense.size());
    std::copy(sense.begin(), sense.end(), completion.sense.begin());
    answers.push_back(completion);
  }

  void completeTag(uint32_t tag, uint32_t status = scsi_status::good, std::vector<uint8_t> sense = {}) {
    for (size_t i = 0; i < waiting.size(); ++i) {
      if (waiting[i].tag == tag) {
        complete(i, status, std::move(sense));
        return;
      }
    }
    throw std::logic_error("no command waits on tag " + std::to_string(tag));
  }

  /// Answers every command at once, in the order of submission.
  void answerAtOnce() {
    onSubmit = [this](const DriveCommand& command) { completeTag(command.tag); };
  }

  DriveGeometry shape;
  DriveCapabilities offers;
  uint32_t most = 1024;
  std::vector<DriveCommand> waiting;
  std::vector<DriveCommand> submitted;
  std::deque<DriveCompletion> answers;
  std::function<void(const DriveCommand&)> onSubmit;
  std::function<void()> onPoll;
  std::function<void()> onSendQueued;
  std::function<void(uint64_t)> onWait;  ///< what happens while the caller sleeps so long; without it, it cannot
  int polls = 0;
  int resets = 0;
  int powerCycles = 0;
};

/// Fixed-format sense data of a key.
inline std::vector<uint8_t> senseOfKey(uint8_t key) {
  std::vector<uint8_t> sense(18, 0);
  sense[0] = 0x70;
  sense[2] = key;
  sense[7] = 10;
  return sense;
}

/// The tags of everything that has completed, in the order in which `queue.poll` hands it out.
template <typename Queue>
std::vector<uint32_t> tagsOfAll(Queue& queue) {
  std::vector<uint32_t> tags;
  DriveCompletion completion;
  while (queue.poll(completion)) {
    tags.push_back(completion.tag);
  }
  return tags;
}

}  // namespace corvane::host::testing
