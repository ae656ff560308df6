#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace CLI {
class Option;
}

namespace corvane::host {

/// What may stand behind a flag, as far as the program knows it before it sees the value.
struct FlagChoices {
  enum class Kind : uint8_t {
    nothing,    ///< a number, a length of time, …: whatever somebody types
    files,      ///< an existing file, or a new one
    folders,    ///< an existing folder, or a new one
    addresses,  ///< a drive's address: `words` are its beginnings, "sim:" or, when a path follows, "file:PATH"
    words,      ///< one of `words`
    lists,      ///< some of `words`, with commas between them
    entries,    ///< one of `words`, then '=' and something
    faults,     ///< one of `words`, then when it strikes
  };
  Kind kind = Kind::nothing;
  std::vector<std::string> words;
};

/// The choices of a flag or of a word without a flag, from its name and the name of its value.
FlagChoices choicesOf(const CLI::Option& option);

/// The flags whose values have names of their own here: each must be a flag of some command.
std::vector<std::string> flagsWithChoices();

}  // namespace corvane::host
