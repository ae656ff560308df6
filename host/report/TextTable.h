#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace corvane::host::report {

/// Columns that line up: of each column the first character of its title says whether it is flushed right ('>').
class TextTable {
 public:
  /// @param titles ">" before those of columns of numbers
  explicit TextTable(const std::vector<std::string>& titles);

  /// A row; cells that are missing stay empty, those beyond the titles are dropped.
  void add(std::vector<std::string> cells);
  bool empty() const { return rows_.size() == 1; }

  /// Every line ends with a line break; no line ends with blanks.
  std::string text(size_t indent) const;

 private:
  std::vector<bool> right_;
  std::vector<std::vector<std::string>> rows_;  // the titles first
};

/// Characters of a text in UTF-8, as a terminal counts columns of plain letters.
size_t charactersIn(std::string_view text);

}  // namespace corvane::host::report
