#include "host/report/TraceReport.h"

#include <array>
#include <charconv>

#include "host/report/TextLines.h"

namespace corvane::host::report {
namespace {

constexpr size_t listedLines = 20;
constexpr size_t shownOfALine = 60;

/// What stands behind the name of an entry.
enum class Shape : uint8_t { bucket, outcome, plain, miscompare, splice, order, toggle, syncIssued, syncEnded, range };

struct EntryName {
  std::string_view name;
  TraceEvent event;
  std::string_view kind;
  Shape shape;
};

constexpr std::array<EntryName, 22> entryNames{{
    {"Write_Issued", TraceEvent::issued, "write", Shape::bucket},
    {"WriteAtomic_Issued", TraceEvent::issued, "atomic", Shape::bucket},
    {"WriteSame_Issued", TraceEvent::issued, "writesame", Shape::bucket},
    {"Read_Issued", TraceEvent::issued, "read", Shape::bucket},
    {"Verify_Issued", TraceEvent::issued, "verify", Shape::bucket},
    {"Trim_Issued", TraceEvent::issued, "trim", Shape::plain},
    {"Pre-Read_Issued", TraceEvent::issued, "read", Shape::plain},
    {"Write_Finished", TraceEvent::finished, "write", Shape::outcome},
    {"Read_Finished", TraceEvent::finished, "read", Shape::outcome},
    {"Verify_Finished", TraceEvent::finished, "verify", Shape::outcome},
    {"Write_ABORTED", TraceEvent::aborted, "write", Shape::plain},
    {"Read_ABORTED", TraceEvent::aborted, "read", Shape::plain},
    {"Verify_ABORTED", TraceEvent::aborted, "verify", Shape::plain},
    {"Miscompare", TraceEvent::miscompare, "", Shape::miscompare},
    {"Write Splice", TraceEvent::writeSplice, "", Shape::splice},
    {"Recv Out Of Order", TraceEvent::outOfOrder, "", Shape::order},
    {"Power Toggle Off", TraceEvent::powerOff, "", Shape::toggle},
    {"Power Toggle On", TraceEvent::powerOn, "", Shape::toggle},
    {"Sync Cache Issued", TraceEvent::issued, "sync", Shape::syncIssued},
    {"Sync Cache Finished", TraceEvent::finished, "sync", Shape::syncEnded},
    {"Invalidate Range", TraceEvent::rangeInvalidated, "", Shape::range},
    {"Zone Reset", TraceEvent::zoneReset, "", Shape::range},
}};

/// A whole word as a number; "0x" may stand before hexadecimal digits.
bool readNumber(std::string_view word, int base, uint64_t& number) {
  if (base == 16 && word.starts_with("0x")) {
    word.remove_prefix(2);
  }
  const char* end = word.data() + word.size();
  const auto [stopped, error] = std::from_chars(word.data(), end, number, base);
  return error == std::errc() && stopped == end && !word.empty();
}

bool readNumber(std::string_view word, int base, std::optional<uint64_t>& number) {
  uint64_t value = 0;
  if (!readNumber(word, base, value)) {
    return false;
  }
  number = value;
  return true;
}

/// A bucket, and "!" before it where its block was invalidated.
bool readBucket(std::string_view word, TraceEntry& entry) {
  entry.invalidated = word.starts_with('!');
  word.remove_prefix(entry.invalidated ? 1 : 0);
  return readNumber(word, 16, entry.bucket);
}

/// Where a name stands in a line as words of their own; npos when it does not.
size_t placeOf(std::string_view name, std::string_view line) {
  const size_t at = line.find(name);
  if (at == std::string_view::npos || at == 0 || line[at - 1] != ' ') {
    return std::string_view::npos;
  }
  const size_t end = at + name.size();
  return end == line.size() || line[end] == ' ' ? at : std::string_view::npos;
}

/// Left of the name: the index, then the command id, the tag, both or none; only tags begin with "0x".
bool readLeft(std::string_view text, TraceEntry& entry) {
  const std::vector<std::string_view> words = wordsOf(text);
  if (words.empty() || words.size() > 3 || !readNumber(words[0], 10, entry.index)) {
    return false;
  }
  for (size_t i = 1; i < words.size(); ++i) {
    const bool isTag = words[i].starts_with("0x");
    if (!(isTag ? readNumber(words[i], 16, entry.tag) : readNumber(words[i], 10, entry.commandId))) {
      return false;
    }
  }
  return true;
}

bool readRight(Shape shape, const std::vector<std::string_view>& words, TraceEntry& entry) {
  const auto has = [&words](size_t count) { return words.size() == count; };
  const auto blocks = [&] { return readNumber(words[0], 16, entry.lba) && readNumber(words[1], 16, entry.blocks); };
  const auto outcome = [&](size_t first) {
    return readNumber(words[first], 16, entry.unitError) && readNumber(words[first + 1], 16, entry.sense);
  };
  switch (shape) {
    case Shape::bucket:
      return has(3) && blocks() && readBucket(words[2], entry);
    case Shape::outcome:
      return has(4) && blocks() && outcome(2);
    case Shape::plain:
      return has(2) && blocks();
    case Shape::miscompare:
      return has(3) && readNumber(words[0], 16, entry.lba) && words[1] == "drive" &&
             readNumber(words[2], 16, entry.found);
    case Shape::splice:
      return has(3) && readNumber(words[0], 16, entry.lba) && outcome(1);
    case Shape::order:
      return has(2) && words[0] == "CmdID" && readNumber(words[1], 10, entry.overtaken);
    case Shape::toggle:
      return has(2) && words[1] == "ms";
    case Shape::syncIssued:
      return words.empty();
    case Shape::syncEnded:
      return has(2) && outcome(0);
    case Shape::range:
      return has(3) && readNumber(words[0], 16, entry.lba) && words[1] == "-" && readNumber(words[2], 16, entry.endLba);
  }
  return false;
}

bool readEntry(std::string_view line, TraceEntry& entry) {
  for (const EntryName& known : entryNames) {
    const size_t at = placeOf(known.name, line);
    if (at == std::string_view::npos) {
      continue;
    }
    entry.event = known.event;
    entry.kind = known.kind;
    entry.preRead = known.name.starts_with("Pre-");
    std::vector<std::string_view> right = wordsOf(line.substr(at + known.name.size()));
    if (!right.empty() && right.back() == "*") {
      right.pop_back();
    }
    return readLeft(line.substr(0, at), entry) && readRight(known.shape, right, entry);
  }
  return false;
}

/// Reads line by line and knows in which section it is.
class Reader {
 public:
  TraceReport read(std::string_view text) {
    size_t number = 0;
    for (const std::string_view line : linesOf(text)) {
      ++number;
      if (!beginsSection(line) && !isFrame(line) && !readRow(line)) {
        leaveUnread(number, line);
      }
    }
    return std::move(report_);
  }

 private:
  enum class Section : uint8_t { none, aboutBlock, history, all };

  bool beginsSection(std::string_view line) {
    constexpr std::string_view about = "Dump of all commands that include the miscompare LBA ";
    if (line.starts_with(about)) {
      std::string_view lba = line.substr(about.size());
      lba.remove_suffix(lba.ends_with(':') ? 1 : 0);
      section_ = Section::aboutBlock;
      return readNumber(lba, 16, report_.lba);
    }
    if (line.starts_with("Dump of the full command sequence")) {
      section_ = Section::all;
      return true;
    }
    if (line.starts_with("Context History for lba ")) {
      section_ = Section::history;
      return true;
    }
    return false;
  }

  static bool isFrame(std::string_view line) {
    const std::vector<std::string_view> words = wordsOf(line);
    return words.empty() || words[0] == "Idx" || words[0] == "EventType" || line.starts_with(" * indicates") ||
           line.find_first_not_of('-') == std::string_view::npos;
  }

  bool readRow(std::string_view line) {
    if (section_ == Section::none) {
      return false;
    }
    if (section_ == Section::history) {
      HistoryRow row;
      const bool good = readHistoryRow(line, row);
      if (good) {
        report_.history.push_back(std::move(row));
      }
      return good;
    }
    std::vector<TraceEntry>& entries = section_ == Section::all ? report_.all : report_.aboutBlock;
    if (readReference(line, entries)) {
      return true;
    }
    TraceEntry entry;
    const bool good = readEntry(line, entry);
    if (good) {
      entries.push_back(std::move(entry));
    }
    return good;
  }

  /// The second line of a miscompare.
  static bool readReference(std::string_view line, std::vector<TraceEntry>& entries) {
    const std::vector<std::string_view> words = wordsOf(line);
    return words.size() == 2 && words[0] == "reference" && !entries.empty() &&
           entries.back().event == TraceEvent::miscompare && readBucket(words[1], entries.back());
  }

  void leaveUnread(size_t number, std::string_view line) {
    if (++report_.unreadLines <= listedLines) {
      report_.unread.push_back({number, std::string(line.substr(0, shownOfALine))});
    }
  }

  Section section_ = Section::none;
  TraceReport report_;
};

}  // namespace

TraceReport readTrace(std::string_view text) { return Reader().read(text); }

}  // namespace corvane::host::report
