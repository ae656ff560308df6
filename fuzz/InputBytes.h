#pragma once

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <span>
#include <string>
#include <string_view>

namespace corvane::fuzz {

/// Takes values off the beginning of an input; behind its end everything is zeros. Refers to the input.
class InputBytes {
 public:
  InputBytes(const uint8_t* data, size_t size) : rest_(data, size) {}

  /// A number of the machine's own byte order, so that a fuzzer that writes numbers into an input meets it.
  template <typename Number>
  Number number() {
    Number value{};
    const size_t there = std::min(sizeof value, rest_.size());
    if (there != 0) {
      std::memcpy(&value, rest_.data(), there);
    }
    rest_ = rest_.subspan(there);
    return value;
  }

  /// At most so many bytes.
  std::span<const uint8_t> bytes(size_t most) {
    const std::span<const uint8_t> taken = rest_.first(std::min(most, rest_.size()));
    rest_ = rest_.subspan(taken.size());
    return taken;
  }

  /// What stands in front of the next line break, which is taken, too.
  std::string_view line() {
    const std::string_view all = textOf(rest_);
    const size_t end = std::min(all.find('\n'), all.size());
    rest_ = rest_.subspan(std::min(end + 1, rest_.size()));
    return all.substr(0, end);
  }

  std::string_view text() { return textOf(bytes(rest_.size())); }

  bool atEnd() const { return rest_.empty(); }

 private:
  static std::string_view textOf(std::span<const uint8_t> bytes) {
    return {reinterpret_cast<const char*>(bytes.data()), bytes.size()};
  }

  std::span<const uint8_t> rest_;
};

}  // namespace corvane::fuzz
