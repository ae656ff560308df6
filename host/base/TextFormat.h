#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace corvane::host {

/// Numbers and texts the way people read them.

/// 1234567 as "1,234,567".
std::string groupedNumber(uint64_t number);

/// Bytes with a decimal unit and up to three digits behind the point: "512 B", "1.23 MB", "4.00 GB".
std::string bytesText(uint64_t bytes);

/// Blocks of a block size with a binary unit as drives are sized: "64 MiB"; "1.5 GiB".
std::string capacityText(uint64_t bytes);

/// So many bytes in so many milliseconds as megabytes (10^6 bytes) a second: "211.3 MB/s"; "0.0 MB/s" in no time.
std::string rateText(uint64_t bytes, uint64_t ms);

/// "0:07", "12:34", "1:02:03".
std::string clockText(uint64_t ms);

/// "0.25 s" below a minute, else as `clockText`.
std::string elapsedText(uint64_t ms);

/// A moment in microseconds since the epoch as "2026-01-31T12:00:00Z".
std::string utcText(uint64_t microseconds);

/// Breaks a text into lines at blanks, each at most `width` characters and beginning with `indent` blanks. Line breaks
/// of the text stay. A word that is too long gets a line of its own. Every line ends with a line break.
std::string wrapText(std::string_view text, size_t width, size_t indent);

/// A word as a POSIX shell takes it back: unchanged when harmless, else in single quotes.
std::string shellQuoted(std::string_view word);

/// The words as one line for a shell.
std::string shellLine(const std::vector<std::string>& words);

/// The text on one line of a terminal: every control character becomes '?'.
std::string printable(std::string_view text);

/// Columns of the terminal behind a file descriptor; `otherwise` when it is none or does not say.
size_t terminalWidth(int fd, size_t otherwise);

/// Rows, likewise.
size_t terminalHeight(int fd, size_t otherwise);

/// At most so many characters of a UTF-8 text, from its beginning.
std::string firstCharacters(std::string_view text, size_t most);

/// Blocks a second with three digits: "0", "999", "1.23k", "408k", "1.02M".
std::string shortRateText(uint64_t count, uint64_t ms);

}  // namespace corvane::host
