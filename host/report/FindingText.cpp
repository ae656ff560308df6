#include <algorithm>
#include <array>
#include <cstdio>

#include "host/base/TextFormat.h"
#include "host/report/TextReportParts.h"
#include "host/report/TextTable.h"

namespace corvane::host::report {
namespace {

constexpr size_t rowBytes = 16;
constexpr size_t mostRows = 16;
constexpr size_t mostCommands = 60;

std::string hex(uint64_t value, int digits) {
  std::array<char, 32> text{};
  std::snprintf(text.data(), text.size(), "%0*llx", digits, static_cast<unsigned long long>(value));
  return text.data();
}

std::string lbaText(uint64_t lba) { return std::to_string(lba) + " (0x" + hex(lba, 1) + ")"; }

std::string orDash(const std::optional<uint64_t>& number) { return number ? std::to_string(*number) : "-"; }

std::string timeText(uint64_t at, bool timed) {
  if (!timed) {
    return std::to_string(at);
  }
  std::array<char, 32> text{};
  std::snprintf(text.data(), text.size(), "%.3f ms", static_cast<double>(at) / 1000);
  return text.data();
}

std::string outcomeText(const ReportedCommand& command) {
  if (!command.trouble.empty()) {
    return command.trouble;
  }
  if (!command.finished) {
    return "not finished";
  }
  return command.status.value_or(0) == 0 ? "good" : "status " + std::to_string(*command.status);
}

std::string marksOf(const ShownCommand& shown, bool guessed) {
  std::string marks;
  const auto add = [&marks](bool wanted, const char* text) {
    marks += wanted ? (marks.empty() ? "<- " : ", ") + std::string(text) : "";
  };
  add(shown.failingRead, guessed ? "last read of the block" : "met it");
  add(shown.expectedWrite, "expected");
  add(shown.observedWrite, "found");
  return marks;
}

std::string commandsText(const FindingView& view) {
  if (view.commands.empty()) {
    return "";
  }
  TextTable table({">id", "kind", ">LBA", ">blocks", ">issued", ">finished", "outcome", ""});
  const size_t left = view.commands.size() - std::min(view.commands.size(), mostCommands);
  for (size_t i = 0; i < view.commands.size(); ++i) {
    const ShownCommand& shown = view.commands[i];
    const bool marked = shown.failingRead || shown.expectedWrite || shown.observedWrite;
    if (i < left && !marked) {
      continue;
    }
    const ReportedCommand& c = shown.command;
    table.add({orDash(c.id), printable(c.kind) + (c.preRead ? " (pre-read)" : ""), std::to_string(c.lba),
               std::to_string(c.blocks), timeText(c.issued, view.timed),
               c.finished ? timeText(*c.finished, view.timed) : "-", printable(outcomeText(c)),
               marksOf(shown, view.readIsGuessed)});
  }
  std::string title = "  Commands around the block";
  title += view.timed ? "" : "; issued and finished are places in the sequence";
  title += left == 0 ? "" : "; the latest " + std::to_string(mostCommands);
  return "\n" + title + "\n" + table.text(4);
}

std::string bytesRow(const std::vector<uint8_t>& bytes, size_t row, const std::vector<uint8_t>& other,
                     const TextStyle& style) {
  std::string text;
  for (size_t i = row; i < row + rowBytes; ++i) {
    const bool differs = i >= other.size() || i >= bytes.size() || bytes[i] != other[i];
    const std::string digits = i < bytes.size() ? hex(bytes[i], 2) : "  ";
    text += differs && style.colours && !other.empty() ? alarming(digits, style) : digits;
    text += style.colours || other.empty() ? ' ' : (differs ? '*' : ' ');
  }
  return text;
}

std::string bytesText(const FindingView& view, const TextStyle& style) {
  const size_t bytes = std::max(view.driveData.size(), view.referenceData.size());
  if (bytes == 0) {
    return "";
  }
  const bool both = !view.driveData.empty() && !view.referenceData.empty();
  std::string text = "\n  Bytes: on the drive" + std::string(rowBytes * 3 - 10, ' ') + "reference\n";
  size_t rows = 0;
  size_t left = 0;
  for (size_t row = 0; row < bytes; row += rowBytes) {
    const auto next = std::lower_bound(view.differing.begin(), view.differing.end(), row);
    if (both && (next == view.differing.end() || *next >= row + rowBytes)) {
      continue;
    }
    if (++rows > mostRows) {
      ++left;
      continue;
    }
    text += "    " + hex(row, 4) + "  " + bytesRow(view.driveData, row, view.referenceData, style) + "  " +
            bytesRow(view.referenceData, row, view.driveData, style);
    text.erase(text.find_last_not_of(' ') + 1);
    text += '\n';
  }
  if (both) {
    text += "    " + std::to_string(view.differing.size()) + " of " + std::to_string(bytes) + " bytes differ" +
            (style.colours ? "" : " (*)") + "; rows that are equal are left out";
    text += left == 0 ? "\n" : ", and " + std::to_string(left) + " more that are not\n";
  }
  return text;
}

std::string stampCell(const std::optional<uint64_t>& value, bool asHex) {
  return value ? (asHex ? "0x" + hex(*value, 1) : std::to_string(*value)) : "-";
}

std::string stampsText(const FindingView& view) {
  TextTable table({"", ">on the drive", ">reference"});
  const auto add = [&table](const char* name, const std::string& found, const std::string& wanted) {
    if (found != "-" || wanted != "-") {
      table.add({name, found, wanted});
    }
  };
  add("bucket", stampCell(view.observed.bucket, true), stampCell(view.expected.bucket, true));
  add("LBA", stampCell(view.observed.lba, false), stampCell(view.expected.lba, false));
  add("command id", stampCell(view.observed.commandId, false), stampCell(view.expected.commandId, false));
  add("all zeros", view.observed.zeros ? "yes" : "-", view.expected.zeros ? "yes" : "-");
  return table.empty() ? "" : "\n  What the block says of itself\n" + table.text(4);
}

char stateMark(const std::string& state) {
  constexpr std::array<std::pair<std::string_view, char>, 6> marks{
      {{"expected", '='}, {"old", 'o'}, {"zeros", '0'}, {"other", 'x'}, {"unknown", '?'}, {"unreadable", '!'}}};
  const auto* const found =
      std::find_if(marks.begin(), marks.end(), [&](const auto& one) { return one.first == state; });
  return found == marks.end() ? '?' : found->second;
}

std::string neighboursText(const std::vector<Neighbour>& neighbours, const TextStyle& style) {
  if (neighbours.empty()) {
    return "";
  }
  std::string strip;
  for (const Neighbour& one : neighbours) {
    strip += stateMark(one.state);
  }
  const size_t width = std::max<size_t>(style.columns, 20) - 4;
  std::string text = "\n  Blocks from LBA " + std::to_string(neighbours.front().lba) + " on: = expected, o old, " +
                     "0 zeros, x other, ? unknown, ! unreadable\n";
  for (size_t at = 0; at < strip.size(); at += width) {
    text += "    " + strip.substr(at, width) + '\n';
  }
  return text;
}

std::string historyText(const std::vector<HistoryRow>& rows) {
  if (rows.empty()) {
    return "";
  }
  TextTable table({"event", ">command", "block type", ">bucket", ">embedded id", ">embedded LBA", ">hash", ""});
  for (const HistoryRow& row : rows) {
    table.add({row.event, row.commandId, printable(row.blockType), printable(row.bucket), printable(row.embeddedId),
               printable(row.embeddedLba), printable(row.hash), row.observed ? "<- observed" : ""});
  }
  return "\n  What could have been there, newest first\n" + table.text(4);
}

std::string wordsText(const Explanation& explanation, const TextStyle& style) {
  std::string text;
  for (const std::string& sentence : explanation.sentences) {
    text += wrapText(printable(sentence), style.columns, 2);
  }
  if (!explanation.suspects.empty()) {
    std::string names;
    for (const std::string& suspect : explanation.suspects) {
      names += (names.empty() ? "" : ", ") + printable(suspect);
    }
    text += wrapText("Suspects, likeliest first: " + names, style.columns, 2);
  }
  if (!explanation.reread.empty()) {
    text += wrapText("A later read of the block: " + printable(explanation.reread), style.columns, 2);
  }
  if (!explanation.replay.empty()) {
    text += "  Replay: " + printable(explanation.replay) + '\n';
  }
  if (!explanation.legal.empty()) {
    text += "\n  Legal would have been\n";
    for (const LegalOutcome& outcome : explanation.legal) {
      text += wrapText("- " + printable(outcome.text), style.columns, 4);
    }
  }
  return text;
}

}  // namespace

std::string findingSection(const FindingView& view, size_t number, const TextStyle& style) {
  const FindingOfResult& finding = view.finding;
  std::string title = "Finding " + std::to_string(number);
  const std::string kind = finding.explanation ? finding.explanation->kind : "";
  title += kind.empty() ? "" : ", " + printable(kind);
  title += ": " + printable(finding.drive);
  title += view.lba ? ", LBA " + lbaText(*view.lba) : "";
  std::string text = alarming(title, style) + '\n' + wrapText(printable(finding.text), style.columns, 2);
  if (finding.commandNumber) {
    text += "  Found after " + groupedNumber(*finding.commandNumber) + " commands" +
            (finding.elapsedMs ? ", " + elapsedText(*finding.elapsedMs) : "") + '\n';
  }
  text += finding.explanation ? wordsText(*finding.explanation, style) : "";
  text += stampsText(view);
  text += commandsText(view);
  text += bytesText(view, style);
  text += finding.explanation ? neighboursText(finding.explanation->neighbours, style) : "";
  text += historyText(view.history);
  for (const std::string& note : view.notes) {
    text += wrapText("Note: " + printable(note), style.columns, 2);
  }
  for (const std::string& file : finding.files) {
    text += "  File: " + printable(file) + '\n';
  }
  return text;
}

}  // namespace corvane::host::report
