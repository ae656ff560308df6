#pragma once

#include <string>
#include <string_view>

namespace corvane::host {

/// A manual page in the making, in the macros that `man` reads.
///
/// Every text is taken literally: what the macros would understand in it is escaped. Line breaks in running text end
/// a line; otherwise `man` breaks lines where they fit.
class RoffPage {
 public:
  /// @param name becomes the title, in capitals, as is the custom
  RoffPage(std::string_view name, std::string_view section, std::string_view source, std::string_view manual);

  /// The section that indexes of manual pages are made of.
  void name(std::string_view name, std::string_view summary);
  /// @param title in capitals on the page, as is the custom
  void section(std::string_view title);
  void subsection(std::string_view title);
  void paragraph(std::string_view text);
  /// A paragraph that heads what follows.
  void heading(std::string_view text);
  /// A word with its value and what is said about both, indented below them.
  void item(std::string_view word, std::string_view value, std::string_view text);
  /// Lines that stay as they are, in the font of a terminal.
  void example(std::string_view lines);

  const std::string& text() const { return text_; }

 private:
  void line(std::string_view macro, std::string_view text);
  void runningText(std::string_view text);

  std::string text_;
};

}  // namespace corvane::host
