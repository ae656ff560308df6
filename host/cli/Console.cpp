#include "host/cli/Console.h"

#include <unistd.h>

#include <cstdlib>

#include "host/base/TextFormat.h"

namespace corvane::host {
namespace {

constexpr std::string_view eraseLine = "\r\x1b[K";
constexpr std::string_view red = "\x1b[1;31m";
constexpr std::string_view plain = "\x1b[0m";
constexpr size_t usualColumns = 100;

}  // namespace

Console Console::of(std::FILE* stream) {
  const int fd = fileno(stream);
  const char* noColor = std::getenv("NO_COLOR");
  const char* term = std::getenv("TERM");
  const bool dumb = (noColor != nullptr && *noColor != '\0') || term == nullptr || std::string_view(term) == "dumb";
  return Console(stream, isatty(fd) != 0 && !dumb, terminalWidth(fd, usualColumns));
}

void Console::line(std::string_view text) {
  const std::lock_guard lock(mutex_);
  erase();
  put(text);
  put("\n");
  redraw();
}

void Console::alarm(std::string_view text) {
  const std::lock_guard lock(mutex_);
  erase();
  put(terminal_ ? red : "");
  put(text);
  put(terminal_ ? plain : "");
  put("\n");
  redraw();
}

void Console::write(std::string_view text) {
  const std::lock_guard lock(mutex_);
  erase();
  put(text);
  redraw();
}

void Console::status(std::string_view text) {
  const std::lock_guard lock(mutex_);
  if (!terminal_) {
    put(text);
    put("\n");
    std::fflush(stream_);
    return;
  }
  erase();
  status_ = text.substr(0, columns_ > 1 ? columns_ - 1 : 0);
  redraw();
}

void Console::clearStatus() {
  const std::lock_guard lock(mutex_);
  erase();
  status_.clear();
  std::fflush(stream_);
}

void Console::put(std::string_view text) { std::fwrite(text.data(), 1, text.size(), stream_); }

void Console::erase() {
  if (!status_.empty()) {
    put(eraseLine);
  }
}

void Console::redraw() {
  put(status_);
  std::fflush(stream_);
}

}  // namespace corvane::host
