#include "host/run/LatencyHistogram.h"

#include <algorithm>
#include <array>
#include <boost/histogram.hpp>
#include <cmath>

namespace corvane::host {
namespace {

constexpr double shortestUs = 1;
constexpr double longestUs = 1e9;
constexpr double classWidth = 1.02;

constexpr uint64_t tabledUs = 4096;  ///< the classes of shorter times come from a table, not from a logarithm

using Axis = boost::histogram::axis::regular<double, boost::histogram::axis::transform::log>;

const Axis& axis() {
  static const Axis all(static_cast<unsigned>(std::ceil(std::log(longestUs / shortestUs) / std::log(classWidth))),
                        shortestUs, longestUs);
  return all;
}

std::array<uint16_t, tabledUs> classesOfShortTimes() {
  std::array<uint16_t, tabledUs> classes{};
  for (uint64_t us = 0; us < tabledUs; ++us) {
    // Nothing takes no time at all; the clock is too coarse to say so.
    classes[us] = static_cast<uint16_t>(axis().index(static_cast<double>(std::max<uint64_t>(us, 1))));
  }
  return classes;
}

size_t classOf(uint64_t us) {
  static const std::array<uint16_t, tabledUs> shortTimes = classesOfShortTimes();
  return us < tabledUs ? shortTimes[us] : static_cast<size_t>(axis().index(static_cast<double>(us)));
}

}  // namespace

LatencyHistogram::LatencyHistogram() : commands_(static_cast<size_t>(axis().size()) + 1) {}

void LatencyHistogram::add(uint64_t us) {
  ++commands_[classOf(us)];
  minUs_ = count_ == 0 ? us : std::min(minUs_, us);
  maxUs_ = std::max(maxUs_, us);
  sumUs_ += us;
  ++count_;
}

double LatencyHistogram::meanUs() const {
  return count_ == 0 ? 0 : static_cast<double>(sumUs_) / static_cast<double>(count_);
}

uint64_t LatencyHistogram::upperBoundUs(int bucket) const {
  const double bound = std::ceil(axis().value(bucket + 1));
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
  for (size_t bucket = 0; bucket < commands_.size(); ++bucket) {
    const uint64_t commands = commands_[bucket];
    if (commands == 0) {
      continue;
    }
    const uint64_t bound = upperBoundUs(static_cast<int>(bucket));
    if (!filled.empty() && filled.back().first == bound) {
      filled.back().second += commands;
    } else {
      filled.emplace_back(bound, commands);
    }
  }
  return filled;
}

}  // namespace corvane::host
