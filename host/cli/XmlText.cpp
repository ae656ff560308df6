#include "host/cli/XmlText.h"

#include <algorithm>
#include <cstdint>

namespace corvane::host {
namespace {

struct CodePoint {
  uint32_t value = 0;
  size_t bytes = 0;  ///< 0: the text does not begin with one
};

/// The code point at the beginning of a text that is not empty; overlong forms and surrogates are none.
CodePoint firstCodePoint(std::string_view text) {
  const auto byte = [text](size_t at) { return static_cast<unsigned char>(text[at]); };
  const unsigned char lead = byte(0);
  if (lead < 0x80) {
    return {.value = lead, .bytes = 1};
  }
  const size_t bytes = lead >= 0xF0 ? 4 : lead >= 0xE0 ? 3 : 2;
  if (lead < 0xC2 || lead > 0xF4 || text.size() < bytes) {
    return {};
  }
  uint32_t value = lead & (0x7FU >> bytes);
  for (size_t i = 1; i < bytes; ++i) {
    if ((byte(i) & 0xC0) != 0x80) {
      return {};
    }
    value = value << 6 | (byte(i) & 0x3FU);
  }
  const uint32_t least = bytes == 2 ? 0x80 : bytes == 3 ? 0x800 : 0x10000;
  const bool surrogate = value >= 0xD800 && value <= 0xDFFF;
  return value < least || value > 0x10FFFF || surrogate ? CodePoint{} : CodePoint{.value = value, .bytes = bytes};
}

void appendAscii(std::string& out, char c) {
  switch (c) {
    case '&':
      out += "&amp;";
      break;
    case '<':
      out += "&lt;";
      break;
    case '>':
      out += "&gt;";
      break;
    case '"':
      out += "&quot;";
      break;
    case '\t':
    case '\n':
    case '\r':
      // As references: an attribute would take them for blanks, and a parser rewrites lone returns.
      out += "&#" + std::to_string(static_cast<int>(c)) + ";";
      break;
    default:
      out += c >= ' ' && c != 0x7F ? std::string(1, c) : "";
  }
}

}  // namespace

std::string xmlText(std::string_view text) {
  constexpr std::string_view replacement = "\xEF\xBF\xBD";
  std::string out;
  while (!text.empty()) {
    const CodePoint point = firstCodePoint(text);
    const bool control = point.value >= 0x80 && point.value < 0xA0;
    if (point.bytes == 0) {
      out += replacement;
    } else if (point.bytes == 1) {
      appendAscii(out, text.front());
    } else if (point.value != 0xFFFE && point.value != 0xFFFF && !control) {
      out += text.substr(0, point.bytes);
    }
    text.remove_prefix(std::max<size_t>(point.bytes, 1));
  }
  return out;
}

}  // namespace corvane::host
