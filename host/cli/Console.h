#pragma once

#include <cstddef>
#include <cstdio>
#include <functional>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

namespace corvane::host {

/// How much a terminal shows at once.
struct ScreenSize {
  size_t columns = 100;
  size_t rows = 24;
};

/// A stream for people: lines that stay, and on a terminal some status lines below them that are redrawn in place.
///
/// Any thread. Nothing but this object writes to the stream while a status is shown.
class Console {
 public:
  /// @param stream   stays open as long as the object
  /// @param terminal whether a status can be redrawn and colours are understood
  /// @param screen   asked at each redrawing, because people change their windows: a status line is cut so that the
  ///                 echo of Ctrl-C fits behind it, and of too many lines the last ones are counted instead of shown
  Console(std::FILE* stream, bool terminal, std::function<ScreenSize()> screen)
      : stream_(stream), terminal_(terminal), screen_(std::move(screen)) {}

  /// For a stream, with what its terminal says of itself. Colours and redrawing are off where NO_COLOR or TERM=dumb
  /// ask for plain text.
  static Console of(std::FILE* stream);

  bool isTerminal() const { return terminal_; }
  size_t columns() const { return screen_().columns; }

  /// A line that stays; the line break is added.
  void line(std::string_view text);
  /// As `line`, marked as something that nobody shall overlook.
  void alarm(std::string_view text);
  /// Text as it is; it ends with a line break.
  void write(std::string_view text);
  /// On a terminal the status in place of the one before, elsewhere lines.
  void status(const std::vector<std::string>& lines);
  /// Takes the status away.
  void clearStatus();

 private:
  void put(std::string_view text);
  /// Puts a text that stays above the status.
  void putAbove(const std::string& text);
  /// What leads to the beginning of the first status line.
  std::string toTop() const;
  std::vector<std::string> fitting(const std::vector<std::string>& lines) const;

  std::mutex mutex_;
  std::FILE* stream_;
  bool terminal_;
  std::function<ScreenSize()> screen_;
  std::vector<std::string> status_;  ///< as it stands on the terminal
};

}  // namespace corvane::host
