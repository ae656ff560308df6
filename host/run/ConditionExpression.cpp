#include "host/run/ConditionExpression.h"

#include <bit>
#include <utility>

#include "host/run/ConfigurationError.h"

namespace corvane::host {
namespace {

constexpr std::string_view operators = "=&|!()";

bool isSpace(char c) { return c == ' ' || c == '\t'; }

/// Reads one text from left to right.
class Parser {
 public:
  Parser(std::string_view text, const ConditionNames& names)
      : names_(names), quoted_("'" + std::string(text) + "'"), rest_(text) {}

  vdl::Condition parse() {
    condition_.replace = take('=');
    if (atEnd()) {
      throw ConfigurationError(quoted_ + " names no condition; write one, as in 'write & !hold'");
    }
    parseItem();
    if (next() == '|') {
      parseAlternatives();
    } else {
      while (take('&')) {
        parseItem();
      }
    }
    if (!atEnd()) {
      refuse();
    }
    return finished();
  }

 private:
  /// `name`, `!name` or `(name | name)`.
  void parseItem() {
    if (take('!')) {
      condition_.noneMask |= parseName();
    } else if (take('(')) {
      parseGroup();
    } else {
      condition_.allMask |= parseName();
    }
  }

  void parseGroup() {
    if (grouped_) {
      refuse();
    }
    grouped_ = true;
    do {
      condition_.anyMask |= parseName();
    } while (take('|'));
    if (!take(')')) {
      refuse();
    }
  }

  /// What follows the first name of `name | name`.
  void parseAlternatives() {
    if (grouped_ || condition_.noneMask != 0) {
      refuse();
    }
    condition_.anyMask = condition_.allMask;
    condition_.allMask = 0;
    while (take('|')) {
      condition_.anyMask |= parseName();
    }
  }

  uint64_t parseName() {
    skipSpaces();
    size_t length = 0;
    while (length < rest_.size() && !isSpace(rest_[length]) &&
           operators.find(rest_[length]) == std::string_view::npos) {
      ++length;
    }
    if (length == 0) {
      refuse();
    }
    const std::string_view name = rest_.substr(0, length);
    rest_.remove_prefix(length);
    return names_.bitOf(name, quoted_);
  }

  vdl::Condition finished() {
    if (const uint64_t both = (condition_.anyMask | condition_.allMask) & condition_.noneMask; both != 0) {
      throw ConfigurationError(quoted_ + " can never hold, because it wants " + names_.listOf(both) +
                               " set and not set; leave one of the two out");
    }
    // A group of one is a name like any other: `(a) & b` and `a & b` give the same masks.
    if (std::has_single_bit(condition_.anyMask)) {
      condition_.allMask |= std::exchange(condition_.anyMask, 0);
    }
    if (condition_.anyMask == 0 && std::has_single_bit(condition_.allMask)) {
      std::swap(condition_.anyMask, condition_.allMask);
    }
    return condition_;
  }

  void skipSpaces() {
    while (!rest_.empty() && isSpace(rest_.front())) {
      rest_.remove_prefix(1);
    }
  }
  char next() {
    skipSpaces();
    return rest_.empty() ? '\0' : rest_.front();
  }
  bool atEnd() {
    skipSpaces();
    return rest_.empty();
  }
  bool take(char c) {
    if (next() != c) {
      return false;
    }
    rest_.remove_prefix(1);
    return true;
  }

  [[noreturn]] void refuse() const {
    throw ConfigurationError(quoted_ +
                             " is no condition; join names with '&', or with '|', put at most one group in parentheses "
                             "and '!' before single names only, as in '(write | atomic) & armed & !hold'");
  }

  const ConditionNames& names_;
  const std::string quoted_;
  std::string_view rest_;
  vdl::Condition condition_;
  bool grouped_ = false;
};

}  // namespace

vdl::Condition parseCondition(std::string_view text, const ConditionNames& names) {
  return Parser(text, names).parse();
}

std::string conditionText(const vdl::Condition& condition, const ConditionNames& names) {
  std::string text;
  const auto add = [&text](const std::string& item) { text.append(text.empty() ? "" : " & ").append(item); };
  std::string alternatives;
  for (const std::string& name : names.namesOf(condition.anyMask)) {
    alternatives.append(alternatives.empty() ? "" : " | ").append(name);
  }
  if (!alternatives.empty()) {
    const bool single = std::has_single_bit(condition.anyMask);
    const bool alone = (condition.allMask | condition.noneMask) == 0;
    add(single || alone ? alternatives : "(" + alternatives + ")");
  }
  for (const std::string& name : names.namesOf(condition.allMask)) {
    add(name);
  }
  for (const std::string& name : names.namesOf(condition.noneMask)) {
    add("!" + name);
  }
  return condition.replace && !text.empty() ? "=" + text : text;
}

}  // namespace corvane::host
