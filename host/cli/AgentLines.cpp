#include "host/cli/AgentLines.h"

#include <algorithm>
#include <array>

#include "host/base/TextFormat.h"

namespace corvane::host {

bool announcesFinding(std::string_view line) {
  constexpr std::array<std::string_view, 4> beginnings{"Miscompare Detected", "Miscompare was expected",
                                                       "Write Splice Detected", "Data match on invalidated block"};
  // An atomic write that came out torn is only named by its status.
  constexpr std::string_view tornAtomic = "(-1063)";
  return std::any_of(beginnings.begin(), beginnings.end(), [line](auto text) { return line.starts_with(text); }) ||
         line.find(tornAtomic) != std::string_view::npos;
}

void AgentLines::setDrives(std::vector<std::string> names) {
  const std::lock_guard lock(mutex_);
  names_ = std::move(names);
  found_.assign(names_.size(), false);
}

void AgentLines::onAgentLine(uint32_t driveIndex, int level, std::string_view text) {
  if (level < 1) {
    return;
  }
  const bool finding = level >= 2 && announcesFinding(text);
  std::string name;
  {
    const std::lock_guard lock(mutex_);
    name = driveIndex < names_.size() ? names_[driveIndex] : "drive " + std::to_string(driveIndex);
    if (finding && driveIndex < found_.size()) {
      found_[driveIndex] = true;
    }
  }
  if (finding) {
    console_.alarm("*** DATA FAILURE *** " + name + ": " + printable(text));
  } else {
    console_.line((level == 1 ? "warning: " : "error: ") + name + ": " + printable(text));
  }
}

std::vector<bool> AgentLines::found() const {
  const std::lock_guard lock(mutex_);
  return found_;
}

}  // namespace corvane::host
