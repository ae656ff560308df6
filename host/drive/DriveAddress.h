#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace corvane::host {

/// An address of the form "scheme:target,key=value,key=value", taken apart. One that begins with "/" is a path of
/// scheme "block". The target of "scheme://user%password@…" may have commas in the password.
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

  /// Any text.
  std::string anyText(std::string_view key, const std::string& otherwise);

  /// Throws when the address has a key that nobody asked for.
  void checkAllTaken() const;

  /// Always throws: "drive address 'text': fault", with the text as `maskedAddress` shows it, and the fault without the
  /// password that a piece in it may have.
  [[noreturn]] void refuse(const std::string& fault) const;

 private:
  std::optional<std::string> take(std::string_view key);
  std::string withoutPassword(std::string fault) const;

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

/// Where the password of "scheme://user%password@…" stands in a text.
struct PasswordPlace {
  size_t begin = 0;
  size_t end = 0;  ///< excluded
};

/// The place of a password, also of one in a wrong address: what looks like one is taken for one. Nothing when there is
/// none, and never in the name of a file.
std::optional<PasswordPlace> passwordIn(std::string_view address);

/// What stands for a password wherever an address is shown or kept. An address with it can be opened again when the
/// environment has the password.
inline constexpr std::string_view passwordMask = "***";

/// The address as people and documents may see it: with `passwordMask` in place of its password.
std::string maskedAddress(std::string_view address);

/// "4096", "64k", "256m", "1g", "2t", with binary multiples (1k = 1024 bytes); nothing for any other text.
std::optional<uint64_t> parseSizeBytes(std::string_view text);

}  // namespace corvane::host
