#pragma once

#include <sstream>
#include <string>
#include <vector>

#include "tests/cli/RunningProgram.h"

namespace corvane::host::testing {

/// A flag, or a word without one, as `--help` explains it.
struct HelpedFlag {
  std::string usage;  ///< "--drive ADDRESS", "-h,--help"
  std::string text;   ///< what is said about it, each gap one blank
};

/// Every run of blanks and line breaks as one blank.
inline std::string withSingleBlanks(const std::string& text) {
  std::istringstream words(text);
  std::string joined;
  for (std::string word; words >> word;) {
    joined += (joined.empty() ? "" : " ") + word;
  }
  return joined;
}

/// The entries of a help text: two blanks, the flag, its text in a column of its own, which further lines go on in.
inline std::vector<HelpedFlag> helpedFlags(const std::string& help) {
  std::vector<HelpedFlag> flags;
  std::istringstream lines(help);
  bool listed = false;  // below a group's name, before the footer
  for (std::string line; std::getline(lines, line);) {
    const size_t begin = line.find_first_not_of(' ');
    if (begin == std::string::npos || begin == 0) {
      listed = line.ends_with(':') && !line.starts_with("Example") && !line.starts_with("Commands");
    } else if (listed && begin == 2) {
      const size_t gap = std::min(line.find("  ", begin), line.size());
      flags.push_back({line.substr(begin, gap - begin), line.substr(gap)});
    } else if (listed && !flags.empty()) {
      flags.back().text += " " + line;
    }
  }
  for (HelpedFlag& flag : flags) {
    flag.text = withSingleBlanks(flag.text);
  }
  return flags;
}

/// What the program lists as its commands.
inline std::vector<std::string> helpedCommands(const std::string& help) {
  std::vector<std::string> commands;
  std::istringstream lines(help.substr(help.find("\nCommands:\n") + 1));
  std::string line;
  std::getline(lines, line);
  while (std::getline(lines, line) && line.starts_with("  ")) {
    commands.push_back(line.substr(2, line.find(' ', 2) - 2));
  }
  return commands;
}

/// `corvane [command] --help`.
inline std::string helpOf(const std::string& command) {
  const tests::TempFolder folder;
  const std::vector<std::string> words =
      command.empty() ? std::vector<std::string>{"--help"} : std::vector<std::string>{command, "--help"};
  return runCorvane(folder, words).out;
}

}  // namespace corvane::host::testing
