#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace corvane::host {

/// An address of the form "scheme:target,key=value,key=value", taken apart. One that begins with "/" is a path of scheme
/// "block".
///
/// The opener of a scheme asks for each key that it knows, then calls `checkAllTaken`, so that a misspelt key is an
/// error and not ignored. Every operation throws DriveAddressError with one line that names the piece.
class DriveAddress {
 public:
  explicit DriveAddress(std::string_view text);

  const std::string& text() const { return text_; }
  const std::string& scheme() const { return scheme_; }
  const std::string& target() const { return target_; }

  /// A whole number.
  ///
  /// @param least included
  /// @param most  included
  uint64_t number(std::string_view key, uint64_t otherwise, uint64_t least, uint64_t most);

  /// Bytes, as `parseSizeBytes` reads them; nothing when the key is not given.
  std::optional<uint64_t> sizeBytes(std::string_view key);

  /// A probability; 0 when the key is not given.
  double probability(std::string_view key);

  /// One of the words.
  ///
  /// @param words the first one is the default
  std::string word(std::string_view key, const std::vector<std::string>& words);

  /// Throws when the address has a key that nobody asked for.
  void checkAllTaken() const;

  /// Always throws: "drive address 'text': fault".
  [[noreturn]] void refuse(const std::string& fault) const;

 private:
  std::optional<std::string> take(std::string_view key);

  struct Pair {
    std::string key;
    std::string value;
    bool taken = false;
  };
  std::string text_;
  std::string scheme_;
  std::string target_;
  std::vector<Pair> pairs_;
  std::vector<std::string> known_;  ///< keys that were asked for
};

/// "4096", "64k", "256m", "1g", "2t", with binary multiples (1k = 1024 bytes); nothing for any other text.
std::optional<uint64_t> parseSizeBytes(std::string_view text);

}  // namespace corvane::host
