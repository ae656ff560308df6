#include "host/run/AgentLog.h"

namespace corvane::host {
namespace {

constexpr std::string_view reportLine = "Bucket compare command sequence saved to '";
constexpr std::string_view dumpLine = "Miscompare Data Written To '";

/// What stands between the prefix and the line's last quote; empty when the line is another one.
std::string quotedAfter(std::string_view text, std::string_view prefix) {
  const size_t at = text.find(prefix);
  const size_t end = text.rfind('\'');
  if (at == std::string_view::npos || end < at + prefix.size()) {
    return {};
  }
  const size_t begin = at + prefix.size();
  return std::string(text.substr(begin, end - begin));
}

}  // namespace

void AgentLog::add(int level, std::string_view text) {
  {
    const std::lock_guard lock(mutex_);
    if (level >= 1) {
      ++(level == 1 ? messages_.warnings : messages_.errors);
      if (messages_.lines.size() < AgentMessages::maxTexts) {
        messages_.lines.push_back({.level = level, .text = std::string(text)});
      }
    }
    noteFile(text);
  }
  if (observer_ != nullptr) {
    observer_->onAgentLine(driveIndex_, level, text);
  }
}

void AgentLog::noteFile(std::string_view text) {
  if (std::string report = quotedAfter(text, reportLine); !report.empty()) {
    messages_.reports.push_back(std::move(report));
  }
  if (std::string dump = quotedAfter(text, dumpLine); !dump.empty()) {
    messages_.dumps.push_back(std::move(dump));
  }
}

AgentMessages AgentLog::messages() const {
  const std::lock_guard lock(mutex_);
  return messages_;
}

std::string AgentLog::firstError() const {
  const std::lock_guard lock(mutex_);
  for (const AgentMessages::Line& line : messages_.lines) {
    if (line.level >= 2) {
      return line.text;
    }
  }
  return {};
}

}  // namespace corvane::host
