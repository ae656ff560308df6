#pragma once

#include <cstdint>
#include <limits>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "host/run/TestDefinition.h"

namespace corvane::host {

/// The texts that flags take, made into values.
///
/// Every operation takes the flag's name for its message, and throws UsageError with one line of the form
/// "--flag 'text' what is wrong; what is accepted".

/// A whole number: "2000", "1e6", "2.5e3", or with k, m, g for thousands, millions, thousands of millions ("2m").
///
/// @param least included
/// @param most  included
uint64_t parseCount(std::string_view flag, std::string_view text, uint64_t least = 0,
                    uint64_t most = std::numeric_limits<uint64_t>::max());

/// As `parseCount`, for values of 32 bits.
uint32_t parseCount32(std::string_view flag, std::string_view text, uint64_t least = 0,
                      uint64_t most = std::numeric_limits<uint32_t>::max());

/// A count, or a hexadecimal number with a leading "0x": for seeds and LBAs.
uint64_t parseNumber(std::string_view flag, std::string_view text);

/// A length of time with its unit, "500ms", "30s", "1.5m", "2h" or "1d", in milliseconds; at least one of them.
uint64_t parseDurationMs(std::string_view flag, std::string_view text, std::string_view none = "leaves no time to test",
                         std::string_view otherwise = "no limit");

/// The shortest text that `parseDurationMs` reads as so many milliseconds.
std::string durationFlagText(uint64_t ms);

/// Transfer lengths or atomic bounds; both ends are included.
struct BlockRange {
  uint32_t min = 0;
  uint32_t max = 0;
};

/// "8..64", or "8" for "8..8"; 1 <= MIN <= MAX. Units are refused: "4k" could be 4000 blocks or 4096 bytes.
BlockRange parseBlockRange(std::string_view flag, std::string_view text);

/// A range of LBAs.
struct LbaRange {
  uint64_t first = 0;
  uint64_t end = 0;  ///< excluded; 0: the drive's end
};

/// "1000..2000", or "1000.." up to the drive's end; FIRST < END, and END is not included.
LbaRange parseLbaRange(std::string_view flag, std::string_view text);

/// "64k", "1g" with binary units or plain bytes, or a share of the drive such as "10%" or "0.5%"; not 0.
DriveShare parseDriveShare(std::string_view flag, std::string_view text);

/// The shortest text that `parseDriveShare` reads as this share.
std::string driveShareText(const DriveShare& share);

/// "write,read" or with weights "write=3,trim=1,read"; a kind without a weight has 1, a kind that is not named 0.
CommandMix parseCommandMix(std::string_view flag, std::string_view text);

/// The text that `parseCommandMix` reads as this mix.
std::string commandMixText(const CommandMix& mix);

/// "0,2-5": numbers of processors.
std::vector<uint32_t> parseCpus(std::string_view flag, std::string_view text);

/// "0" to "100", with or without '%'.
uint32_t parsePercent(std::string_view flag, std::string_view text);

/// "off", "nosync" or "sync".
PowerToggle parsePowerToggle(std::string_view flag, std::string_view text);

/// The text that `parsePowerToggle` reads as this value.
const char* powerToggleText(PowerToggle toggle);

/// The two sides of the first '=' without blanks around them; no value when there is no '='.
std::pair<std::string, std::optional<std::string>> splitNamedValue(std::string_view text);

/// What stands between commas, without blanks around it; one empty text for an empty one.
std::vector<std::string> splitList(std::string_view text);

/// "Option Name=value"; blanks around both are dropped, the value may hold further '=' and may be empty.
std::pair<std::string, std::string> parseOptionSetting(std::string_view flag, std::string_view text);

}  // namespace corvane::host
