#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <string_view>

/// What every target defines: takes one input, whatever its bytes are, and returns 0. A property that does not hold
/// ends the program, as a sanitizer does.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

namespace corvane::fuzz {

/// Ends the program unless a property holds.
///
/// @param property in words; said before the end
inline void require(bool holds, std::string_view property) {
  if (!holds) {
    std::fprintf(stderr, "property broken: %.*s\n", static_cast<int>(property.size()), property.data());
    std::abort();
  }
}

/// What has to be true of every message that refuses an input: it says something, names what it is about, and adds no
/// line break or other control character that the input had not, as it is or behind a backslash.
inline void requireMessage(std::string_view message, std::string_view named, std::string_view input) {
  const auto hasControls = [](std::string_view text) {
    return std::any_of(text.begin(), text.end(), [](char c) { return static_cast<unsigned char>(c) < 0x20; });
  };
  require(!message.empty(), "a message says something");
  require(message.find(named) != std::string_view::npos,
          "the message '" + std::string(message) + "' names '" + std::string(named) + "'");
  const bool mayBringSome = hasControls(input) || input.find('\\') != std::string_view::npos;
  require(mayBringSome || !hasControls(message), "the message '" + std::string(message) + "' is one line");
}

}  // namespace corvane::fuzz
