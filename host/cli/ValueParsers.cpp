#include "host/cli/ValueParsers.h"

#include <algorithm>
#include <array>
#include <charconv>

#include "host/base/CpuList.h"
#include "host/base/NearestName.h"
#include "host/cli/UsageError.h"
#include "host/drive/DriveAddress.h"

namespace corvane::host {
namespace {

constexpr std::string_view countHelp = "a whole number such as 2000, 1e6 or 2m (k, m, g: thousand, million, 10^9)";
constexpr std::string_view durationHelp = "a time with its unit such as 500ms, 30s, 10m, 2h or 1d";
constexpr uint32_t mostWeight = 1'000'000;
constexpr uint32_t wholeDrive = 100'000;  ///< thousandths of a percent

/// Units, the greatest first, so that a text is made with the greatest that fits.
constexpr std::array<std::pair<std::string_view, uint64_t>, 5> durationUnits{
    {{"d", 86'400'000}, {"h", 3'600'000}, {"m", 60'000}, {"s", 1000}, {"ms", 1}}};

constexpr std::array<CommandKind, 6> mixKinds{CommandKind::write, CommandKind::writeAtomic, CommandKind::writeSame,
                                              CommandKind::trim,  CommandKind::read,        CommandKind::verify};

[[noreturn]] void refuse(std::string_view flag, std::string_view text, std::string_view fault,
                         std::string_view remedy) {
  std::string message;
  message.append(flag).append(" '").append(text).append("' ").append(fault).append("; ").append(remedy);
  throw UsageError(message);
}

std::string_view trimmed(std::string_view text) {
  const size_t first = text.find_first_not_of(" \t");
  if (first == std::string_view::npos) {
    return {};
  }
  return text.substr(first, text.find_last_not_of(" \t") - first + 1);
}

bool isDigit(char c) { return c >= '0' && c <= '9'; }

/// A decimal number as digits times a power of ten, so that fractions stay exact.
struct Decimal {
  uint64_t digits = 0;
  int exponent = 0;
};

/// Takes digits with at most one point from the front of the text; nothing when there is none, or too many.
std::optional<Decimal> takeDecimal(std::string_view& text) {
  Decimal number;
  bool point = false;
  size_t taken = 0;
  size_t digits = 0;
  for (; taken < text.size() && (isDigit(text[taken]) || (text[taken] == '.' && !point)); ++taken) {
    if (text[taken] == '.') {
      point = true;
      continue;
    }
    const auto digit = static_cast<uint64_t>(text[taken] - '0');
    if (__builtin_mul_overflow(number.digits, uint64_t{10}, &number.digits) ||
        __builtin_add_overflow(number.digits, digit, &number.digits)) {
      return std::nullopt;
    }
    number.exponent -= point ? 1 : 0;
    ++digits;
  }
  if (digits == 0 || text[taken - 1] == '.') {
    return std::nullopt;
  }
  text.remove_prefix(taken);
  return number;
}

/// The number, when it is a whole one that fits.
std::optional<uint64_t> whole(Decimal number) {
  uint64_t value = number.digits;
  for (; value != 0 && number.exponent > 0; --number.exponent) {
    if (__builtin_mul_overflow(value, uint64_t{10}, &value)) {
      return std::nullopt;
    }
  }
  for (; value != 0 && number.exponent < 0; ++number.exponent) {
    if (value % 10 != 0) {
      return std::nullopt;
    }
    value /= 10;
  }
  return value;
}

std::optional<uint64_t> readCount(std::string_view text) {
  std::optional<Decimal> number = takeDecimal(text);
  if (!number) {
    return std::nullopt;
  }
  if (text.size() > 1 && (text.front() == 'e' || text.front() == 'E') && isDigit(text[1])) {
    text.remove_prefix(1);
    const size_t end = std::min(text.find_first_not_of("0123456789"), text.size());
    int exponent = 0;
    if (std::from_chars(text.data(), text.data() + end, exponent).ec != std::errc() || exponent > 30) {
      return std::nullopt;
    }
    number->exponent += exponent;
    text.remove_prefix(end);
  }
  if (text == "k" || text == "K") {
    number->exponent += 3;
  } else if (text == "m" || text == "M") {
    number->exponent += 6;
  } else if (text == "g" || text == "G") {
    number->exponent += 9;
  } else if (!text.empty()) {
    return std::nullopt;
  }
  return whole(*number);
}

std::optional<uint64_t> readNumber(std::string_view text) {
  if (!text.starts_with("0x") && !text.starts_with("0X")) {
    return readCount(text);
  }
  uint64_t value = 0;
  const std::string_view digits = text.substr(2);
  const auto [end, fault] = std::from_chars(digits.data(), digits.data() + digits.size(), value, 16);
  const bool complete = !digits.empty() && fault == std::errc() && end == digits.data() + digits.size();
  return complete ? std::optional(value) : std::nullopt;
}

/// Whether the text is a number with a unit behind it.
bool hasUnit(std::string_view text) {
  return takeDecimal(text) && text.size() == 1 &&
         std::string_view("kKmMgGtTbB%").find(text[0]) != std::string_view::npos;
}

/// Splits "A..B"; the second is missing when the text has no "..".
std::pair<std::string_view, std::optional<std::string_view>> splitRange(std::string_view text) {
  const size_t dots = text.find("..");
  if (dots == std::string_view::npos) {
    return {trimmed(text), std::nullopt};
  }
  return {trimmed(text.substr(0, dots)), trimmed(text.substr(dots + 2))};
}

std::optional<CommandKind> readKind(std::string_view name) {
  const auto* kind = std::find_if(mixKinds.begin(), mixKinds.end(),
                                  [name](CommandKind candidate) { return name == commandKindName(candidate); });
  return kind == mixKinds.end() ? std::nullopt : std::optional(*kind);
}

void addToMix(CommandMix& mix, std::string_view flag, std::string_view text, std::string_view entry) {
  const auto [name, weightText] = splitNamedValue(entry);
  const std::optional<CommandKind> kind = readKind(name);
  if (!kind) {
    std::vector<std::string> known;
    known.reserve(mixKinds.size());
    for (const CommandKind candidate : mixKinds) {
      known.emplace_back(commandKindName(candidate));
    }
    refuse(flag, text, "names the unknown kind '" + name + "'",
           "choose of write, atomic, writesame, trim, read, verify" + didYouMean(name, known));
  }
  if (mix.selects(*kind)) {
    refuse(flag, text, "names " + name + " twice", "name each kind once, with its weight as " + name + "=N");
  }
  uint64_t weight = 1;
  if (weightText) {
    const std::optional<uint64_t> given = readCount(*weightText);
    if (!given || *given == 0 || *given > mostWeight) {
      refuse(flag, text, "gives " + name + " no usable weight",
             "accepted are 1 to " + std::to_string(mostWeight) + "; leave a kind out that is not wanted");
    }
    weight = *given;
  }
  mix.setWeight(*kind, static_cast<uint32_t>(weight));
}

}  // namespace

uint64_t parseCount(std::string_view flag, std::string_view text, uint64_t least, uint64_t most) {
  const std::optional<uint64_t> count = readCount(text);
  if (!count) {
    refuse(flag, text, "is no count", std::string("give ").append(countHelp));
  }
  if (*count < least) {
    refuse(flag, text, "is too small", "the least is " + std::to_string(least));
  }
  if (*count > most) {
    refuse(flag, text, "is too large", "the most is " + std::to_string(most));
  }
  return *count;
}

uint32_t parseCount32(std::string_view flag, std::string_view text, uint64_t least, uint64_t most) {
  return static_cast<uint32_t>(
      parseCount(flag, text, least, std::min<uint64_t>(most, std::numeric_limits<uint32_t>::max())));
}

uint64_t parseNumber(std::string_view flag, std::string_view text) {
  const std::optional<uint64_t> number = readNumber(text);
  if (!number) {
    refuse(flag, text, "is no number", std::string("give ").append(countHelp).append(", or 0x and hexadecimal digits"));
  }
  return *number;
}

uint64_t parseDurationMs(std::string_view flag, std::string_view text, std::string_view none,
                         std::string_view otherwise) {
  constexpr uint64_t longestMs = 86'400'000'000'000;  // in microseconds still far from the end of 64 bits
  std::string_view rest = text;
  const std::optional<Decimal> number = takeDecimal(rest);
  const auto* unit =
      std::find_if(durationUnits.begin(), durationUnits.end(), [&](const auto& known) { return known.first == rest; });
  if (!number || unit == durationUnits.end()) {
    refuse(flag, text, number && rest.empty() ? "has no unit" : "is no time",
           std::string("give ").append(durationHelp));
  }
  Decimal scaled = *number;
  uint64_t ms = 0;
  if (__builtin_mul_overflow(scaled.digits, unit->second, &scaled.digits)) {
    refuse(flag, text, "is too long", std::string("give ").append(durationHelp));
  }
  if (const std::optional<uint64_t> exact = whole(scaled); exact) {
    ms = *exact;
  } else {
    refuse(flag, text, "is finer than a millisecond", std::string("give ").append(durationHelp));
  }
  if (ms == 0) {
    refuse(flag, text, none, std::string("give at least 1ms, or leave it out for ").append(otherwise));
  }
  if (ms > longestMs) {
    refuse(flag, text, "is too long", "give at most " + durationFlagText(longestMs));
  }
  return ms;
}

std::string durationFlagText(uint64_t ms) {
  for (const auto& [unit, length] : durationUnits) {
    if (ms % length == 0 && ms >= length) {
      return std::to_string(ms / length) + std::string(unit);
    }
  }
  return "0s";
}

BlockRange parseBlockRange(std::string_view flag, std::string_view text) {
  const auto [minText, maxText] = splitRange(text);
  if (hasUnit(minText) || (maxText && hasUnit(*maxText))) {
    refuse(flag, text, "has a unit, but blocks are counted, whose size is each drive's own",
           "give MIN..MAX in blocks: 4 KiB are 8 blocks of 512 bytes, or 1 of 4096");
  }
  const std::optional<uint64_t> min = readCount(minText);
  const std::optional<uint64_t> max = maxText ? readCount(*maxText) : min;
  const std::string_view remedy = "give MIN..MAX in blocks such as 1..64, or one number";
  if (!min || !max) {
    refuse(flag, text, "is no range of lengths", remedy);
  }
  if (*min == 0) {
    refuse(flag, text, "begins with 0 blocks", "the shortest length is 1");
  }
  if (*min > *max) {
    refuse(flag, text, "has its ends the wrong way round", remedy);
  }
  if (*max > std::numeric_limits<uint32_t>::max()) {
    refuse(flag, text, "is too large", "the most is " + std::to_string(std::numeric_limits<uint32_t>::max()));
  }
  return {.min = static_cast<uint32_t>(*min), .max = static_cast<uint32_t>(*max)};
}

LbaRange parseLbaRange(std::string_view flag, std::string_view text) {
  const auto [firstText, endText] = splitRange(text);
  const std::string_view remedy = "give FIRST..END such as 0..1m or 0x1000..0x2000 (END is not included), or FIRST..";
  const std::optional<uint64_t> first = readNumber(firstText);
  const bool toTheEnd = endText && endText->empty();
  const std::optional<uint64_t> end = toTheEnd || !endText ? std::optional<uint64_t>(0) : readNumber(*endText);
  if (!endText || !first || !end) {
    refuse(flag, text, "is no range of LBAs", remedy);
  }
  if (!toTheEnd && *end <= *first) {
    refuse(flag, text, "is empty", remedy);
  }
  return {.first = *first, .end = *end};
}

DriveShare parseDriveShare(std::string_view flag, std::string_view text) {
  constexpr std::string_view remedy = "give bytes such as 64k, 256m, 1g or 2t (binary units), or a share such as 10%";
  DriveShare share;
  if (text.ends_with('%')) {
    std::string_view rest = text.substr(0, text.size() - 1);
    std::optional<Decimal> number = takeDecimal(rest);
    if (number) {
      number->exponent += 3;
    }
    const std::optional<uint64_t> share1000 = number && rest.empty() ? whole(*number) : std::nullopt;
    if (!share1000 || *share1000 > wholeDrive) {
      refuse(flag, text, "is no share of a drive", "give 0.001% to 100%");
    }
    share.milliPercent = static_cast<uint32_t>(*share1000);
  } else if (const std::optional<uint64_t> bytes = parseSizeBytes(text)) {
    share.bytes = *bytes;
  } else {
    refuse(flag, text, "is no size", remedy);
  }
  if (!share.any()) {
    refuse(flag, text, "leaves nothing to test", remedy);
  }
  return share;
}

std::string driveShareText(const DriveShare& share) {
  if (share.bytes == 0) {
    std::string fraction = std::to_string(1000 + share.milliPercent % 1000).substr(1);
    fraction.erase(fraction.find_last_not_of('0') + 1);
    return std::to_string(share.milliPercent / 1000) + (fraction.empty() ? "" : "." + fraction) + "%";
  }
  constexpr std::array<std::pair<const char*, uint32_t>, 4> units{{{"t", 40}, {"g", 30}, {"m", 20}, {"k", 10}}};
  for (const auto& [unit, shift] : units) {
    if (share.bytes % (uint64_t{1} << shift) == 0) {
      return std::to_string(share.bytes >> shift) + unit;
    }
  }
  return std::to_string(share.bytes);
}

CommandMix parseCommandMix(std::string_view flag, std::string_view text) {
  CommandMix mix = CommandMix::nothing();
  for (const std::string& entry : splitList(text)) {
    addToMix(mix, flag, text, entry);
  }
  return mix;
}

std::string commandMixText(const CommandMix& mix) {
  std::string text;
  for (const CommandKind kind : mixKinds) {
    if (mix.selects(kind)) {
      text.append(text.empty() ? "" : ",").append(commandKindName(kind));
      if (mix.weight(kind) != 1) {
        text.append("=").append(std::to_string(mix.weight(kind)));
      }
    }
  }
  return text;
}

std::vector<uint32_t> parseCpus(std::string_view flag, std::string_view text) {
  const std::optional<std::vector<uint32_t>> cpus = parseCpuList(text);
  if (!cpus) {
    refuse(flag, text, "is no list of processors",
           "give their numbers, each below " + std::to_string(mostCpus) + " and once, such as 0,2-5");
  }
  return *cpus;
}

uint32_t parsePercent(std::string_view flag, std::string_view text) {
  const std::string_view number = text.ends_with('%') ? text.substr(0, text.size() - 1) : text;
  const std::optional<uint64_t> percent = readCount(number);
  if (!percent || *percent > 100) {
    refuse(flag, text, "is no percentage", "give 0 to 100");
  }
  return static_cast<uint32_t>(*percent);
}

PowerToggle parsePowerToggle(std::string_view flag, std::string_view text) {
  for (const PowerToggle toggle : {PowerToggle::off, PowerToggle::withoutSync, PowerToggle::withSync}) {
    if (text == powerToggleText(toggle)) {
      return toggle;
    }
  }
  refuse(flag, text, "is not known",
         "choose off, nosync (cut the power at once) or sync (flush the cache before each cut)");
}

const char* powerToggleText(PowerToggle toggle) {
  switch (toggle) {
    case PowerToggle::withoutSync:
      return "nosync";
    case PowerToggle::withSync:
      return "sync";
    case PowerToggle::off:
      break;
  }
  return "off";
}

std::pair<std::string, std::optional<std::string>> splitNamedValue(std::string_view text) {
  const size_t equals = text.find('=');
  std::string name(trimmed(text.substr(0, equals)));
  if (equals == std::string_view::npos) {
    return {std::move(name), std::nullopt};
  }
  return {std::move(name), std::string(trimmed(text.substr(equals + 1)))};
}

std::vector<std::string> splitList(std::string_view text) {
  std::vector<std::string> entries;
  while (true) {
    const size_t comma = text.find(',');
    entries.emplace_back(trimmed(text.substr(0, comma)));
    if (comma == std::string_view::npos) {
      return entries;
    }
    text.remove_prefix(comma + 1);
  }
}

std::pair<std::string, std::string> parseOptionSetting(std::string_view flag, std::string_view text) {
  auto [name, value] = splitNamedValue(text);
  if (!value || name.empty()) {
    refuse(flag, text, "sets nothing", "give \"Option Name=value\"; 'corvane options' lists the names");
  }
  return {std::move(name), std::move(*value)};
}

}  // namespace corvane::host
