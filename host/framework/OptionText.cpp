#include "host/framework/OptionText.h"

#include <algorithm>
#include <cctype>
#include <charconv>
#include <cstdio>

namespace corvane::host {

namespace {

std::string conditionText(const vdl::Condition& condition) {
  char text[128];
  std::snprintf(text, sizeof(text), "any=0x%llx all=0x%llx none=0x%llx replace=%s",
                static_cast<unsigned long long>(condition.anyMask), static_cast<unsigned long long>(condition.allMask),
                static_cast<unsigned long long>(condition.noneMask), condition.replace ? "on" : "off");
  return text;
}

std::string bufferText(const vdl::Buffer& buffer) {
  return buffer.size == 0 ? "empty" : std::to_string(buffer.size) + " bytes";
}

char lower(char c) { return static_cast<char>(std::tolower(static_cast<unsigned char>(c))); }

}  // namespace

std::string optionValueText(OptionKind kind, const void* target) {
  switch (kind) {
    case OptionKind::u32:
      return std::to_string(*static_cast<const uint32_t*>(target));
    case OptionKind::boolean:
      return *static_cast<const bool*>(target) ? "true" : "false";
    case OptionKind::text:
      return *static_cast<const std::string*>(target);
    case OptionKind::buffer:
      return bufferText(*static_cast<const vdl::Buffer*>(target));
    case OptionKind::condition:
      break;
  }
  return conditionText(*static_cast<const vdl::Condition*>(target));
}

std::optional<uint32_t> parseU32(std::string_view text) {
  int base = 10;
  if (text.starts_with("0x") || text.starts_with("0X")) {
    base = 16;
    text.remove_prefix(2);
  }
  uint32_t value = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value, base);
  if (error != std::errc() || end != text.data() + text.size()) {
    return std::nullopt;
  }
  return value;
}

std::optional<bool> parseBool(std::string_view text) {
  std::string word(text);
  std::transform(word.begin(), word.end(), word.begin(), lower);
  if (word == "true" || word == "on" || word == "yes" || word == "1") {
    return true;
  }
  if (word == "false" || word == "off" || word == "no" || word == "0") {
    return false;
  }
  return std::nullopt;
}

}  // namespace corvane::host
