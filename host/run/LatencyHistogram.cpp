#include "host/run/LatencyHistogram.h"

#include <algorithm>
#include <cmath>

namespace corvane::host {
namespace {

constexpr double shortestUs = 1;
constexpr double longestUs = 1e9;
constexpr double classWidth = 1.02;

unsigned classes() { return static_cast<unsigned>(std::ceil(std::log(longestUs / shortestUs) / std::log(classWidth))); }

}  // namespace

LatencyHistogram::LatencyHistogram() : histogram_(std::make_tuple(Axis(classes(), shortestUs, longestUs))) {}

void LatencyHistogram::add(uint64_t us) {
  // Nothing takes no time at all; the clock is too coarse to say so.
  histogram_(static_cast<double>(std::max<uint64_t>(us, 1)));
  minUs_ = count_ == 0 ? us : std::min(minUs_, us);
  maxUs_ = std::max(maxUs_, us);
  sumUs_ += us;
  ++count_;
}

double LatencyHistogram::meanUs() const {
  return count_ == 0 ? 0 : static_cast<double>(sumUs_) / static_cast<double>(count_);
}

uint64_t LatencyHistogram::upperBoundUs(int bucket) const {
  const double bound = std::ceil(histogram_.axis().value(bucket + 1));
  return std::isfinite(bound) ? std::min(maxUs_, static_cast<uint64_t>(bound)) : maxUs_;
}

uint64_t LatencyHistogram::percentileUs(double percent) const {
  const double wanted = static_cast<double>(count_) * percent / 100;
  uint64_t below = 0;
  for (const auto& [bound, commands] : buckets()) {
    below += commands;
    if (static_cast<double>(below) >= wanted) {
      return bound;
    }
  }
  return maxUs_;
}

std::vector<std::pair<uint64_t, uint64_t>> LatencyHistogram::buckets() const {
  std::vector<std::pair<uint64_t, uint64_t>> filled;
  for (int bucket = 0; bucket <= histogram_.axis().size(); ++bucket) {  // the last one is the overflow
    const auto commands = static_cast<uint64_t>(histogram_.at(bucket));
    if (commands == 0) {
      continue;
    }
    const uint64_t bound = upperBoundUs(bucket);
    if (!filled.empty() && filled.back().first == bound) {
      filled.back().second += commands;
    } else {
      filled.emplace_back(bound, commands);
    }
  }
  return filled;
}

}  // namespace corvane::host
