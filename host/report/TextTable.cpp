#include "host/report/TextTable.h"

#include <algorithm>

namespace corvane::host::report {

TextTable::TextTable(const std::vector<std::string>& titles) {
  std::vector<std::string> row;
  for (const std::string& title : titles) {
    right_.push_back(title.starts_with('>'));
    row.push_back(right_.back() ? title.substr(1) : title);
  }
  rows_.push_back(std::move(row));
}

void TextTable::add(std::vector<std::string> cells) {
  cells.resize(right_.size());
  rows_.push_back(std::move(cells));
}

std::string TextTable::text(size_t indent) const {
  std::vector<size_t> widths(right_.size());
  for (const auto& row : rows_) {
    for (size_t column = 0; column < row.size(); ++column) {
      widths[column] = std::max(widths[column], charactersIn(row[column]));
    }
  }
  std::string text;
  for (const auto& row : rows_) {
    std::string line(indent, ' ');
    for (size_t column = 0; column < row.size(); ++column) {
      const std::string blanks(widths[column] - charactersIn(row[column]), ' ');
      line += (column == 0 ? "" : "  ") + (right_[column] ? blanks + row[column] : row[column] + blanks);
    }
    line.erase(line.find_last_not_of(' ') + 1);
    text += line + '\n';
  }
  return text;
}

size_t charactersIn(std::string_view text) {
  return static_cast<size_t>(
      std::count_if(text.begin(), text.end(), [](char c) { return (static_cast<unsigned char>(c) & 0xC0U) != 0x80U; }));
}

}  // namespace corvane::host::report
