#include "host/run/HangWatch.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <limits>

#include "host/base/TextFormat.h"
#include "host/drive/DriveError.h"

namespace corvane::host {
namespace {

constexpr size_t namedCommands = 8;
constexpr uint64_t looksPerWatchdog = 8;

std::string textOf(const UnansweredCommand& command) {
  std::string words = commandKindName(command.kind);
  if (command.kind != CommandKind::syncCache) {
    words += " of " + std::to_string(command.blocks) + " blocks at LBA " + std::to_string(command.lba);
  }
  return words + " (tag " + std::to_string(command.tag) + ", " + secondsText(command.ageUs) + ")";
}

}  // namespace

std::string secondsText(uint64_t microseconds) {
  constexpr double usPerSecond = 1e6;
  constexpr uint64_t usPerMs = 1000;
  if (microseconds < 1'000'000) {
    return std::to_string(microseconds / usPerMs) + " ms";
  }
  std::array<char, 32> text{};
  std::snprintf(text.data(), text.size(), "%.1f s", static_cast<double>(microseconds) / usPerSecond);
  return text.data();
}

HangWatch::HangWatch(const DriveQueue& queue, uint64_t watchdogMs, HostClock& clock)
    : queue_(queue),
      clock_(clock),
      watchdogUs_(std::min(watchdogMs, std::numeric_limits<uint64_t>::max() / 1000) * 1000) {}

void HangWatch::lookAtClock() {
  const uint64_t nowUs = clock_.coarseUs();
  if (nowUs < nextLookUs_ || (suspects_ && queue_.completions() - suspectedAt_ < queue_.tags())) {
    return;
  }
  nextLookUs_ = nowUs + watchdogUs_ / looksPerWatchdog;
  const std::vector<UnansweredCommand> commands = hanging(nowUs);
  if (!commands.empty() && suspects_) {
    throw DriveHung(describe(commands) + "; " + remedy());
  }
  suspects_ = !commands.empty();
  suspectedAt_ = queue_.completions();
}

std::vector<UnansweredCommand> HangWatch::hanging(uint64_t nowUs) const {
  std::vector<UnansweredCommand> commands;
  for (uint32_t tag = 0; tag < queue_.tags(); ++tag) {
    if (queue_.isOutstanding(tag) && !queue_.isUnsent(tag)) {
      const uint64_t ageUs = nowUs - std::min(nowUs, queue_.sentUs(tag));
      if (ageUs >= watchdogUs_) {
        const DriveCommand& command = queue_.command(tag);
        commands.push_back(
            {.kind = command.kind, .tag = tag, .lba = command.lba, .blocks = command.blocks, .ageUs = ageUs});
      }
    }
  }
  // The clock is coarse: of commands of the same age the one that the test chose first.
  std::ranges::sort(commands, [this](const UnansweredCommand& a, const UnansweredCommand& b) {
    return a.ageUs != b.ageUs ? a.ageUs > b.ageUs : queue_.command(a.tag).id < queue_.command(b.tag).id;
  });
  return commands;
}

std::string HangWatch::describe(const std::vector<UnansweredCommand>& commands) const {
  if (commands.empty()) {
    return {};
  }
  std::string sentence = "the drive hangs: " + groupedNumber(commands.size()) +
                         (commands.size() == 1 ? " command is" : " commands are") + " unanswered for " +
                         secondsText(watchdogUs_) + " or longer: ";
  for (size_t i = 0; i < std::min(commands.size(), namedCommands); ++i) {
    sentence += (i == 0 ? "" : ", ") + textOf(commands[i]);
  }
  if (commands.size() > namedCommands) {
    sentence += " and " + groupedNumber(commands.size() - namedCommands) + " more";
  }
  return sentence;
}

std::string HangWatch::remedy() const {
  return "check the drive and its connection, or set the watchdog above " + secondsText(watchdogUs_) +
         " if the drive may take longer";
}

}  // namespace corvane::host
