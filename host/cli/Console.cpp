#include "host/cli/Console.h"

#include <unistd.h>

#include <algorithm>
#include <cstdlib>

#include "host/base/TextFormat.h"

namespace corvane::host {
namespace {

constexpr std::string_view eraseToLineEnd = "\x1b[K";
constexpr std::string_view eraseToScreenEnd = "\x1b[J";
constexpr std::string_view red = "\x1b[1;31m";
constexpr std::string_view plain = "\x1b[0m";

/// Kept free at the right: "^C" that a terminal echoes must not begin a new line, or we no longer know where ours are.
constexpr size_t echoColumns = 3;

std::string joined(const std::vector<std::string>& lines, std::string_view between) {
  std::string text;
  for (size_t i = 0; i < lines.size(); ++i) {
    text.append(i == 0 ? "" : between).append(lines[i]);
  }
  return text;
}

}  // namespace

Console Console::of(std::FILE* stream) {
  const int fd = fileno(stream);
  const char* noColor = std::getenv("NO_COLOR");
  const char* term = std::getenv("TERM");
  const bool dumb = (noColor != nullptr && *noColor != '\0') || term == nullptr || std::string_view(term) == "dumb";
  return Console(stream, isatty(fd) != 0 && !dumb, [fd] {
    const ScreenSize usual;
    return ScreenSize{.columns = terminalWidth(fd, usual.columns), .rows = terminalHeight(fd, usual.rows)};
  });
}

void Console::line(std::string_view text) {
  const std::lock_guard lock(mutex_);
  putAbove(std::string(text) + "\n");
}

void Console::alarm(std::string_view text) {
  const std::lock_guard lock(mutex_);
  std::string marked(terminal_ ? red : "");
  marked.append(text).append(terminal_ ? plain : "").append("\n");
  putAbove(marked);
}

void Console::write(std::string_view text) {
  const std::lock_guard lock(mutex_);
  putAbove(std::string(text));
}

void Console::status(const std::vector<std::string>& lines) {
  const std::lock_guard lock(mutex_);
  if (!terminal_) {
    put(joined(lines, "\n") + (lines.empty() ? "" : "\n"));
    return;
  }
  // Written over what stands there instead of erased first: so nothing flickers.
  const std::string top = toTop();
  status_ = fitting(lines);
  put(top + joined(status_, std::string(eraseToLineEnd) + "\n") + std::string(eraseToScreenEnd));
}

void Console::clearStatus() {
  const std::lock_guard lock(mutex_);
  if (!status_.empty()) {
    put(toTop() + std::string(eraseToScreenEnd));
    status_.clear();
  }
}

void Console::put(std::string_view text) {
  std::fwrite(text.data(), 1, text.size(), stream_);
  std::fflush(stream_);
}

void Console::putAbove(const std::string& text) {
  if (status_.empty()) {
    put(text);
  } else {
    put(toTop() + std::string(eraseToScreenEnd) + text + joined(status_, "\n"));
  }
}

std::string Console::toTop() const {
  if (status_.empty()) {
    return {};
  }
  return status_.size() == 1 ? "\r" : "\r\x1b[" + std::to_string(status_.size() - 1) + "A";
}

std::vector<std::string> Console::fitting(const std::vector<std::string>& lines) const {
  const ScreenSize screen = screen_();
  const size_t most = std::max<size_t>(screen.rows, 2) - 1;
  std::vector<std::string> shown(lines.begin(),
                                 lines.begin() + static_cast<std::ptrdiff_t>(std::min(most, lines.size())));
  if (lines.size() > most) {
    shown.back() = "and " + std::to_string(lines.size() - most + 1) + " more";
  }
  for (std::string& line : shown) {
    line = firstCharacters(line, screen.columns > echoColumns ? screen.columns - echoColumns : 0);
  }
  return shown;
}

}  // namespace corvane::host
