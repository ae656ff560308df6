#pragma once

#include <cstddef>
#include <cstdio>
#include <mutex>
#include <string>
#include <string_view>

namespace corvane::host {

/// A stream for people: lines that stay, and on a terminal one status line below them that is redrawn in place.
///
/// Any thread. Nothing but this object writes to the stream while a status is shown.
class Console {
 public:
  /// @param stream   stays open as long as the object
  /// @param terminal whether a status can be redrawn and colours are understood
  /// @param columns  a status is cut to one less
  Console(std::FILE* stream, bool terminal, size_t columns) : stream_(stream), terminal_(terminal), columns_(columns) {}

  /// For a stream, with what its terminal says of itself. Colours and redrawing are off where NO_COLOR or TERM=dumb
  /// ask for plain text.
  static Console of(std::FILE* stream);

  bool isTerminal() const { return terminal_; }
  size_t columns() const { return columns_; }

  /// A line that stays; the line break is added.
  void line(std::string_view text);
  /// As `line`, marked as something that nobody shall overlook.
  void alarm(std::string_view text);
  /// Text as it is.
  void write(std::string_view text);
  /// On a terminal the status in place of the one before, elsewhere a line.
  void status(std::string_view text);
  /// Takes the status away.
  void clearStatus();

 private:
  void put(std::string_view text);
  void erase();
  void redraw();

  std::mutex mutex_;
  std::FILE* stream_;
  bool terminal_;
  size_t columns_;
  std::string status_;
};

}  // namespace corvane::host
