#include "host/drive/DriveAddress.h"

#include <algorithm>
#include <charconv>
#include <limits>

#include "host/base/Probability.h"
#include "host/drive/DriveError.h"

namespace corvane::host {
namespace {

std::optional<uint64_t> parseNumber(std::string_view text) {
  uint64_t value = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
  if (error != std::errc() || end != text.data() + text.size()) {
    return std::nullopt;
  }
  return value;
}

std::string joined(const std::vector<std::string>& words) {
  std::string text;
  for (const std::string& word : words) {
    text += (text.empty() ? "" : ", ") + word;
  }
  return text;
}

}  // namespace

std::optional<uint64_t> parseSizeBytes(std::string_view text) {
  constexpr std::string_view units = "kmgt";
  uint32_t shift = 0;
  if (!text.empty()) {
    const char last = static_cast<char>(text.back() | 0x20);
    if (const size_t unit = units.find(last); unit != std::string_view::npos) {
      shift = static_cast<uint32_t>(unit + 1) * 10;
      text.remove_suffix(1);
    }
  }
  const std::optional<uint64_t> value = parseNumber(text);
  if (!value || *value > std::numeric_limits<uint64_t>::max() >> shift) {
    return std::nullopt;
  }
  return *value << shift;
}

DriveAddress::DriveAddress(std::string_view text) : text_(text) {
  const size_t colon = text.find(':');
  if (text.substr(0, 1) == "/") {
    // The name of a device as everybody writes it; it may have colons in it, as those under /dev/disk/by-path have.
    scheme_ = "block";
  } else if (colon != std::string_view::npos) {
    scheme_ = text.substr(0, colon);
    text.remove_prefix(colon + 1);
  } else {
    refuse("it has no kind; begin it with one, as in 'file:PATH' or 'sim:', or name a block device, as in '/dev/sdx'");
  }
  bool first = true;
  const std::optional<PasswordPlace> password = passwordIn(text_);
  while (first || !text.empty()) {
    const size_t from = first && password ? password->end - (text_.size() - text.size()) : 0;
    const size_t comma = std::min(text.find(',', from), text.size());
    const std::string_view piece = text.substr(0, comma);
    text.remove_prefix(std::min(comma + 1, text.size()));
    const size_t equals = piece.find('=');
    // "sim:seed=1" has no target; a path may well contain the sign.
    if (first && (equals == std::string_view::npos || scheme_ != "sim")) {
      target_ = piece;
    } else if (equals == std::string_view::npos) {
      refuse("'" + std::string(piece) + "' is not of the form key=value");
    } else {
      pairs_.push_back({std::string(piece.substr(0, equals)), std::string(piece.substr(equals + 1)), false});
    }
    first = false;
  }
  for (size_t i = 0; i < pairs_.size(); ++i) {
    for (size_t j = 0; j < i; ++j) {
      if (pairs_[i].key == pairs_[j].key) {
        refuse("'" + pairs_[i].key + "' is given twice; leave one of them out");
      }
    }
  }
}

std::optional<std::string> DriveAddress::take(std::string_view key) {
  known_.emplace_back(key);
  for (Pair& pair : pairs_) {
    if (pair.key == key) {
      pair.taken = true;
      return pair.value;
    }
  }
  return std::nullopt;
}

uint64_t DriveAddress::number(std::string_view key, uint64_t otherwise, uint64_t least, uint64_t most) {
  const std::optional<std::string> text = take(key);
  if (!text) {
    return otherwise;
  }
  const std::optional<uint64_t> value = parseNumber(*text);
  if (!value || *value < least || *value > most) {
    const std::string range = most == std::numeric_limits<uint64_t>::max()
                                  ? "a whole number of 64 bits"
                                  : "a whole number from " + std::to_string(least) + " to " + std::to_string(most);
    refuse(std::string(key) + "=" + *text + " is not " + range);
  }
  return *value;
}

std::optional<uint64_t> DriveAddress::sizeBytes(std::string_view key) {
  const std::optional<std::string> text = take(key);
  if (!text) {
    return std::nullopt;
  }
  const std::optional<uint64_t> bytes = parseSizeBytes(*text);
  if (!bytes || *bytes == 0) {
    refuse(std::string(key) + "=" + *text + " is not a size; write bytes, or a number with k, m, g or t, as in 256m");
  }
  return bytes;
}

double DriveAddress::probability(std::string_view key) {
  const std::optional<std::string> text = take(key);
  if (!text) {
    return 0;
  }
  const std::optional<double> value = parseProbability(*text);
  if (!value) {
    refuse(std::string(key) + "=" + *text + " is not a probability; write a number from 0 to 1, as in 0.01");
  }
  return *value;
}

std::string DriveAddress::word(std::string_view key, const std::vector<std::string>& words) {
  const std::optional<std::string> text = take(key);
  if (!text) {
    return words.front();
  }
  if (std::find(words.begin(), words.end(), *text) == words.end()) {
    refuse(std::string(key) + "=" + *text + " is not known; it takes " + joined(words));
  }
  return *text;
}

std::string DriveAddress::anyText(std::string_view key, const std::string& otherwise) {
  return take(key).value_or(otherwise);
}

void DriveAddress::checkAllTaken() const {
  for (const Pair& pair : pairs_) {
    if (!pair.taken) {
      refuse("'" + pair.key + "' is not a key of '" + scheme_ + ":' addresses; it takes " + joined(known_));
    }
  }
}

void DriveAddress::refuse(const std::string& fault) const {
  throw DriveAddressError("drive address '" + maskedAddress(text_) + "': " + withoutPassword(fault));
}

std::string DriveAddress::withoutPassword(std::string fault) const {
  const std::optional<PasswordPlace> place = passwordIn(text_);
  if (!place) {
    return fault;
  }
  // With the sign in front of it: a password may be a word that the message has, too.
  const size_t sign = place->begin - std::min<size_t>(place->begin, 1);
  const std::string secret = text_.substr(sign, place->end - sign);
  const std::string shown = text_.substr(sign, place->begin - sign) + std::string(passwordMask);
  for (size_t at = fault.find(secret); at != std::string::npos; at = fault.find(secret, at + shown.size())) {
    fault.replace(at, secret.size(), shown);
  }
  return fault;
}

std::optional<PasswordPlace> passwordIn(std::string_view address) {
  if (address.starts_with('/') || address.starts_with("file:")) {
    return std::nullopt;
  }
  const size_t slashes = address.find("://");
  const size_t begin = slashes == std::string_view::npos ? 0 : slashes + 3;
  const std::string_view rest = address.substr(begin);
  const size_t at = rest.rfind('@');
  PasswordPlace place;
  if (at != std::string_view::npos) {
    // Some write a colon, as in other addresses; names of initiators, which serve as users, have colons of their own.
    const bool isName = rest.starts_with("iqn.") || rest.starts_with("eui.") || rest.starts_with("naa.");
    const size_t mark = std::min(rest.find('%'), isName || slashes == std::string_view::npos ? at : rest.find(':'));
    place = {begin + mark + 1, begin + at};
    if (mark >= at) {
      return std::nullopt;
    }
  } else if (slashes != std::string_view::npos && !rest.starts_with('[')) {
    // The host was forgotten.
    const size_t mark = rest.find('%');
    const size_t end = std::min(rest.find_first_of("/,"), rest.size());
    if (mark >= end) {
      return std::nullopt;
    }
    place = {begin + mark + 1, begin + end};
  }
  return place.begin < place.end ? std::optional(place) : std::nullopt;
}

std::string maskedAddress(std::string_view address) {
  std::string text(address);
  if (const std::optional<PasswordPlace> place = passwordIn(address)) {
    text.replace(place->begin, place->end - place->begin, passwordMask);
  }
  return text;
}

}  // namespace corvane::host
