#include "host/base/TextFormat.h"

#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <ctime>

namespace corvane::host {
namespace {

std::string formatted(const char* format, double value, const char* unit) {
  std::array<char, 64> text{};
  std::snprintf(text.data(), text.size(), format, value, unit);
  return text.data();
}

/// All zero when it is no terminal or does not say.
winsize terminalSize(int fd) {
  winsize size{};
  return isatty(fd) != 0 && ioctl(fd, TIOCGWINSZ, &size) == 0 ? size : winsize{};
}

/// Wraps one line of a text; `line` holds no line break.
void wrapLine(std::string& out, std::string_view line, size_t width, const std::string& indent) {
  size_t column = 0;
  while (!line.empty()) {
    const size_t begin = line.find_first_not_of(' ');
    if (begin == std::string_view::npos) {
      break;
    }
    line.remove_prefix(begin);
    const std::string_view word = line.substr(0, line.find(' '));
    line.remove_prefix(word.size());
    if (column == 0) {
      out += indent;
      column = indent.size();
    } else if (column + 1 + word.size() > width) {
      out += '\n' + indent;
      column = indent.size();
    } else {
      out += ' ';
      ++column;
    }
    out += word;
    column += word.size();
  }
  out += '\n';
}

}  // namespace

std::string groupedNumber(uint64_t number) {
  std::string text = std::to_string(number);
  for (size_t at = text.size(); at > 3; at -= 3) {
    text.insert(at - 3, 1, ',');
  }
  return text;
}

std::string bytesText(uint64_t bytes) {
  constexpr std::array<const char*, 6> units{"kB", "MB", "GB", "TB", "PB", "EB"};
  if (bytes < 1000) {
    return std::to_string(bytes) + " B";
  }
  auto value = static_cast<double>(bytes) / 1000;
  size_t unit = 0;
  for (; value >= 999.995 && unit + 1 < units.size(); ++unit) {
    value /= 1000;
  }
  return formatted("%.2f %s", value, units[unit]);
}

std::string capacityText(uint64_t bytes) {
  constexpr std::array<const char*, 6> units{"KiB", "MiB", "GiB", "TiB", "PiB", "EiB"};
  if (bytes < 1024) {
    return std::to_string(bytes) + " B";
  }
  auto value = static_cast<double>(bytes) / 1024;
  size_t unit = 0;
  for (; value >= 1024 && unit + 1 < units.size(); ++unit) {
    value /= 1024;
  }
  return formatted("%.4g %s", value, units[unit]);
}

std::string rateText(uint64_t bytes, uint64_t ms) {
  const double rate = ms == 0 ? 0 : static_cast<double>(bytes) / 1000 / static_cast<double>(ms);
  return formatted("%.1f %s", rate, "MB/s");
}

std::string clockText(uint64_t ms) {
  const uint64_t seconds = ms / 1000;
  std::array<char, 32> text{};
  const auto minutes = static_cast<unsigned long long>(seconds / 60 % 60);
  const auto rest = static_cast<unsigned long long>(seconds % 60);
  if (const auto hours = static_cast<unsigned long long>(seconds / 3600); hours != 0) {
    std::snprintf(text.data(), text.size(), "%llu:%02llu:%02llu", hours, minutes, rest);
  } else {
    std::snprintf(text.data(), text.size(), "%llu:%02llu", minutes, rest);
  }
  return text.data();
}

std::string elapsedText(uint64_t ms) {
  return ms < 60'000 ? formatted("%.2f %s", static_cast<double>(ms) / 1000, "s") : clockText(ms);
}

std::string utcText(uint64_t microseconds) {
  const auto seconds = static_cast<std::time_t>(microseconds / 1'000'000);
  std::tm fields{};
  gmtime_r(&seconds, &fields);
  std::array<char, 40> text{};
  return {text.data(), std::strftime(text.data(), text.size(), "%Y-%m-%dT%H:%M:%SZ", &fields)};
}

std::string wrapText(std::string_view text, size_t width, size_t indent) {
  const std::string blanks(indent, ' ');
  std::string wrapped;
  while (true) {
    const size_t end = text.find('\n');
    wrapLine(wrapped, text.substr(0, end), width, blanks);
    if (end == std::string_view::npos || end + 1 == text.size()) {
      return wrapped;
    }
    text.remove_prefix(end + 1);
  }
}

std::string shellQuoted(std::string_view word) {
  const auto harmless = [](char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') ||
           std::string_view("-_./:=,+@%").find(c) != std::string_view::npos;
  };
  if (!word.empty() && std::all_of(word.begin(), word.end(), harmless)) {
    return std::string(word);
  }
  std::string quoted = "'";
  for (const char c : word) {
    quoted += c == '\'' ? std::string("'\\''") : std::string(1, c);
  }
  return quoted + "'";
}

std::string shellLine(const std::vector<std::string>& words) {
  std::string line;
  for (const std::string& word : words) {
    line += (line.empty() ? "" : " ") + shellQuoted(word);
  }
  return line;
}

std::string printable(std::string_view text) {
  std::string safe(text);
  std::replace_if(
      safe.begin(), safe.end(), [](char c) { return (c >= 0 && c < ' ') || c == 0x7F; }, '?');
  return safe;
}

size_t terminalWidth(int fd, size_t otherwise) {
  const winsize size = terminalSize(fd);
  return size.ws_col == 0 ? otherwise : size.ws_col;
}

size_t terminalHeight(int fd, size_t otherwise) {
  const winsize size = terminalSize(fd);
  return size.ws_row == 0 ? otherwise : size.ws_row;
}

std::string firstCharacters(std::string_view text, size_t most) {
  size_t end = 0;
  for (size_t count = 0; end < text.size(); ++end) {
    const bool begins = (static_cast<unsigned char>(text[end]) & 0xC0) != 0x80;
    if (begins && ++count > most) {
      break;
    }
  }
  return std::string(text.substr(0, end));
}

std::string shortRateText(uint64_t count, uint64_t ms) {
  constexpr std::array<const char*, 4> units{"", "k", "M", "G"};
  double rate = ms == 0 ? 0 : static_cast<double>(count) * 1000 / static_cast<double>(ms);
  size_t unit = 0;
  for (; rate >= 999.5 && unit + 1 < units.size(); ++unit) {
    rate /= 1000;
  }
  const char* format = unit == 0 || rate >= 99.95 ? "%.0f%s" : rate >= 9.995 ? "%.1f%s" : "%.2f%s";
  return formatted(format, rate, units[unit]);
}

}  // namespace corvane::host
