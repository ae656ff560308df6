#include "host/cli/Progress.h"

#include "host/base/TextFormat.h"

namespace corvane::host {
std::string Progress::next(const ProgressSnapshot& now, uint64_t findings, bool stopping) {
  const uint64_t ms = now.elapsedMs - lastMs_;
  std::string text = clockText(now.elapsedMs);
  if (timeLimitMs_ != 0) {
    text += " of " + clockText(timeLimitMs_);
  }
  text += "  " + groupedNumber(now.totals.commandsIssued()) + " commands";
  text += "  " + rateText(now.totals.bytesWritten - lastBytesWritten_, ms) + " written";
  text += "  " + rateText(now.totals.bytesCompared - lastBytesCompared_, ms) + " compared";
  text += "  " + std::to_string(now.totals.outstanding) + " outstanding";
  text += "  " + std::to_string(findings) + (findings == 1 ? " finding" : " findings");
  if (stopping) {
    text += "  stopping";
  }
  lastMs_ = now.elapsedMs;
  lastBytesWritten_ = now.totals.bytesWritten;
  lastBytesCompared_ = now.totals.bytesCompared;
  return text;
}

}  // namespace corvane::host
