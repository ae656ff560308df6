#pragma once

#include <algorithm>
#include <cstdlib>
#include <string>
#include <string_view>
#include <vector>

namespace corvane::host::testing {

/// What somebody sees on a terminal: understands the few control sequences that the program sends.
class TerminalScreen {
 public:
  TerminalScreen(size_t rows, size_t columns) : columns_(columns), rows_(rows) {}

  void put(char c) {
    if (!sequence_.empty()) {
      sequence_ += c;
      if (sequence_.size() > 2 && (c < '0' || c > '?')) {
        carryOut();
        sequence_.clear();
      }
    } else if (c == '\x1b') {
      sequence_ = c;
    } else if (c == '\r') {
      column_ = 0;
    } else if (c == '\n') {
      lineFeed();
    } else {
      print(c);
    }
  }

  const std::vector<std::string>& rows() const { return rows_; }
  /// Rows that contain a text.
  size_t count(std::string_view part) const {
    return static_cast<size_t>(std::count_if(
        rows_.begin(), rows_.end(), [part](const std::string& row) { return row.find(part) != std::string::npos; }));
  }
  /// The first row that contains a text; the number of rows when there is none.
  size_t rowOf(std::string_view part) const {
    return static_cast<size_t>(
        std::find_if(rows_.begin(), rows_.end(),
                     [part](const std::string& row) { return row.find(part) != std::string::npos; }) -
        rows_.begin());
  }
  /// Sequences that it does not understand.
  const std::vector<std::string>& unknown() const { return unknown_; }

 private:
  void print(char c) {
    if (column_ == columns_) {
      column_ = 0;
      lineFeed();
    }
    std::string& row = rows_[row_];
    row.resize(std::max(row.size(), column_ + 1), ' ');
    row[column_++] = c;
  }
  void lineFeed() {
    if (++row_ == rows_.size()) {
      rows_.erase(rows_.begin());
      rows_.emplace_back();
      --row_;
    }
  }
  void carryOut() {
    const char last = sequence_.back();
    if (last == 'A') {
      row_ -= std::min<size_t>(row_, std::strtoul(sequence_.c_str() + 2, nullptr, 10));
    } else if (last == 'K' || last == 'J') {
      rows_[row_].resize(std::min(rows_[row_].size(), column_));
      for (size_t below = row_ + 1; last == 'J' && below < rows_.size(); ++below) {
        rows_[below].clear();
      }
    } else if (last != 'm') {
      unknown_.push_back(sequence_.substr(1));
    }
  }

  size_t columns_;
  std::vector<std::string> rows_;
  size_t row_ = 0;
  size_t column_ = 0;
  std::string sequence_;
  std::vector<std::string> unknown_;
};

}  // namespace corvane::host::testing
