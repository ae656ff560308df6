#pragma once

#include <string_view>
#include <vector>

namespace corvane::host::report {

/// The lines of a text without their ends ("\n" or "\r\n"); a last line without an end counts. Views into the text.
inline std::vector<std::string_view> linesOf(std::string_view text) {
  std::vector<std::string_view> lines;
  while (!text.empty()) {
    const size_t end = text.find('\n');
    std::string_view line = text.substr(0, end);
    text.remove_prefix(end == std::string_view::npos ? text.size() : end + 1);
    if (line.ends_with('\r')) {
      line.remove_suffix(1);
    }
    lines.push_back(line);
  }
  return lines;
}

/// The words of a line, between blanks. Views into the line.
inline std::vector<std::string_view> wordsOf(std::string_view line) {
  std::vector<std::string_view> words;
  while (true) {
    const size_t begin = line.find_first_not_of(" \t");
    if (begin == std::string_view::npos) {
      return words;
    }
    line.remove_prefix(begin);
    words.push_back(line.substr(0, line.find_first_of(" \t")));
    line.remove_prefix(words.back().size());
  }
}

}  // namespace corvane::host::report
