#include "host/cli/Progress.h"

#include <algorithm>
#include <limits>

#include "host/base/TextFormat.h"

namespace corvane::host {
namespace {

// So wide that lines of several drives stand below one another and numbers do not jump.
constexpr size_t rateWidth = 11;
constexpr size_t blockRateWidth = 5;

std::string atRight(const std::string& text, size_t width) {
  return std::string(width > text.size() ? width - text.size() : 0, ' ') + text;
}

}  // namespace

Progress::Progress(ProgressFacts facts) : facts_(std::move(facts)), last_(facts_.drives.size()) {
  for (const std::string& name : facts_.drives) {
    nameWidth_ = std::max(nameWidth_, name.size());
  }
}

std::vector<std::string> Progress::next(const ProgressSnapshot& now, const std::vector<bool>& found, bool stopping) {
  std::vector<std::string> lines;
  for (size_t i = 0; i < now.drives.size(); ++i) {
    lines.push_back(line(i, now.drives[i], now.elapsedMs, i < found.size() && found[i], stopping));
  }
  lastMs_ = now.elapsedMs;
  return lines;
}

std::string Progress::line(size_t index, const DriveProgress& drive, uint64_t elapsedMs, bool found, bool stopping) {
  std::string text = printable(facts_.drives.at(index));
  text.resize(std::max(text.size(), nameWidth_), ' ');
  if (drive.ended) {
    return text + "  ended: " + runStatusName(drive.status) + "  " + groupedNumber(drive.totals.commandsIssued()) +
           " commands  " + bytesText(drive.totals.bytesCompared) + " compared";
  }
  const uint64_t ms = elapsedMs - lastMs_;
  const Marks now = marksOf(drive.totals);
  const Marks before = std::exchange(last_.at(index), now);
  const std::string depth = std::to_string(facts_.queueDepth);
  text += "  " + timeText(drive, elapsedMs);
  text += found ? "  1 finding " : "  0 findings";
  text += "  " + atRight(std::to_string(drive.totals.outstanding), depth.size()) + " of " + depth + " outstanding";
  text += rates("compared", now.compared, before.compared, ms);
  text += rates("written", now.written, before.written, ms);
  text += rates("read back", now.read, before.read, ms);
  return text + (stopping ? "  stopping" : "");
}

Progress::Marks Progress::marksOf(const DriveTotals& totals) {
  return {.compared = {totals.blocksCompared, totals.bytesCompared},
          .written = {totals.blocksWritten, totals.bytesWritten},
          .read = {totals.blocksRead, totals.bytesRead}};
}

std::string Progress::rates(const char* name, const Figures& now, const Figures& before, uint64_t ms) {
  return "  " + std::string(name) + " " + atRight(rateText(now.bytes - before.bytes, ms), rateWidth) + " " +
         atRight(shortRateText(now.blocks - before.blocks, ms), blockRateWidth) + " blocks/s";
}

std::string Progress::timeText(const DriveProgress& drive, uint64_t elapsedMs) const {
  constexpr uint64_t unknown = std::numeric_limits<uint64_t>::max();
  uint64_t leftMs = unknown;
  if (facts_.timeLimitMs != 0) {
    leftMs = facts_.timeLimitMs - std::min(facts_.timeLimitMs, elapsedMs);
  }
  const uint64_t issued = drive.totals.commandsIssued();
  if (facts_.commandLimit != 0 && issued != 0) {
    const double todo = static_cast<double>(facts_.commandLimit) - static_cast<double>(issued);
    const double ms = static_cast<double>(elapsedMs) * std::max(todo, 0.0) / static_cast<double>(issued);
    leftMs = std::min(leftMs, static_cast<uint64_t>(std::min(ms, 1e15)));
  }
  return clockText(elapsedMs) + (leftMs == unknown ? "" : ", " + clockText(leftMs) + " left");
}

}  // namespace corvane::host
