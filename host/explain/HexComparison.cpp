#include "host/explain/HexComparison.h"

#include <algorithm>
#include <cstdio>

namespace corvane::host {
namespace {

constexpr size_t bytesPerLine = 16;
constexpr size_t shownEqualLines = 3;

/// One side of a line: three characters a byte, the brackets in the places of the blanks.
std::string side(std::span<const uint8_t> own, std::span<const uint8_t> other, size_t from) {
  std::string text;
  bool open = false;
  for (size_t i = from; i < from + bytesPerLine; ++i) {
    const bool known = i < own.size();
    const bool differs = known && i < other.size() && own[i] != other[i];
    text += differs ? '[' : (open ? ']' : ' ');
    if (differs && open) {
      text.back() = ' ';  // one bracket around a run of bytes
    }
    open = differs;
    char byte[3] = "--";
    if (known) {
      std::snprintf(byte, sizeof byte, "%02X", static_cast<unsigned>(own[i]));
    }
    text += byte;
  }
  text += open ? ']' : ' ';
  return text;
}

bool isEqualLine(std::span<const uint8_t> a, std::span<const uint8_t> b, size_t from) {
  const auto line = [from](std::span<const uint8_t> bytes) {
    return bytes.size() < from ? bytes.first(0) : bytes.subspan(from, std::min(bytesPerLine, bytes.size() - from));
  };
  return std::ranges::equal(line(a), line(b));
}

/// How many lines from one on are equal.
size_t equalLines(std::span<const uint8_t> a, std::span<const uint8_t> b, size_t from, size_t size) {
  size_t lines = 0;
  while (from + lines * bytesPerLine < size && isEqualLine(a, b, from + lines * bytesPerLine)) {
    ++lines;
  }
  return lines;
}

}  // namespace

std::string hexComparison(std::span<const uint8_t> drive, std::span<const uint8_t> reference, size_t mostDiffering) {
  const size_t size = std::max(drive.size(), reference.size());
  std::string text = "offset   drive                                             reference\n";
  size_t differing = 0;
  for (size_t from = 0; from < size;) {
    const size_t equal = equalLines(drive, reference, from, size);
    if (equal > shownEqualLines) {
      text += "         ... " + std::to_string(equal) + " equal lines\n";
      from += equal * bytesPerLine;
      continue;
    }
    if (equal == 0 && ++differing > mostDiffering) {
      text += "         ... " + std::to_string((size - from + bytesPerLine - 1) / bytesPerLine) + " more lines\n";
      break;
    }
    char offset[24];
    std::snprintf(offset, sizeof offset, "0x%04zX  ", from);
    text += offset + side(drive, reference, from) + " " + side(reference, drive, from) + "\n";
    from += bytesPerLine;
  }
  return text;
}

}  // namespace corvane::host
