#include "host/cli/RunSummary.h"

#include <algorithm>
#include <cstdio>
#include <sstream>
#include <vector>

#include "host/base/TextFormat.h"
#include "host/cli/ExitStatus.h"
#include "host/explain/HexComparison.h"

namespace corvane::host {
namespace {

constexpr size_t mostInjections = 8;  ///< in a summary; the document has them all

std::string kindsText(const std::array<uint64_t, commandKinds>& counts) {
  std::string text;
  for (uint32_t kind = 0; kind < commandKinds; ++kind) {
    if (counts[kind] != 0) {
      text += (text.empty() ? "" : ", ") + std::string(commandKindName(static_cast<CommandKind>(kind))) + " " +
              groupedNumber(counts[kind]);
    }
  }
  return text;
}

std::string figure(const char* name, const std::string& text) {
  std::string line = std::string("  ") + name;
  line.resize(14, ' ');
  return line + text + "\n";
}

std::string bytesLine(const char* name, uint64_t bytes, uint64_t elapsedMs) {
  return figure(name, bytesText(bytes) + ", " + rateText(bytes, elapsedMs));
}

std::string eventsText(const DriveTotals& totals) {
  std::string text;
  const auto add = [&text](uint64_t count, const char* what) {
    if (count != 0) {
      text += (text.empty() ? "" : ", ") + std::string(what) + " " + groupedNumber(count);
    }
  };
  add(totals.resets, "resets");
  add(totals.powerCycles, "power cycles");
  add(totals.connectionsLost, "connections lost");
  add(totals.zoneResets, "zone resets");
  add(totals.invalidations, "invalidations");
  add(totals.failed, "commands that failed");
  add(totals.retried, "retried");
  add(totals.stray, "stray completions");
  return text;
}

std::string checkedText(const CheckedBlocks& checked) {
  std::string text = groupedNumber(checked.oneOutcome) + " blocks against one content";
  uint32_t fewest = 0;
  uint32_t most = 0;
  for (uint32_t outcomes = 2; outcomes <= CheckedBlocks::mostOutcomes; ++outcomes) {
    if (checked.severalOutcomes[outcomes] != 0) {
      fewest = fewest == 0 ? outcomes : fewest;
      most = outcomes;
    }
  }
  if (most != 0) {
    text += ", " + groupedNumber(checked.checkedAgainstSeveral()) + " against one of " + std::to_string(fewest) +
            (most == fewest ? "" : " to " + std::to_string(most));
  }
  return text;
}

std::string notCheckedText(const CheckedBlocks& checked) {
  const auto& counts = checked.notCheckable;
  const auto largest = std::max_element(counts.begin(), counts.end());
  const bool all = *largest == checked.uncheckable();
  return groupedNumber(checked.uncheckable()) + " blocks, " + (all ? "" : groupedNumber(*largest) + " of them: ") +
         uncheckableText(static_cast<Uncheckable>(largest - counts.begin()));
}

std::string filesText(const AgentMessages& messages) {
  std::string text;
  for (const auto* files : {&messages.reports, &messages.dumps}) {
    for (const std::string& file : *files) {
      text += "    " + printable(file) + "\n";
    }
  }
  for (const std::string& sentence : messages.incomplete) {
    text += "  warning: " + printable(sentence) + "\n";
  }
  return text;
}

std::string driveSummary(const DriveResult& drive, size_t findings) {
  const DriveTotals& totals = drive.totals;
  std::string text = "Drive " + printable(drive.name) + ": " + verdictText(drive) + "\n";
  text += figure("address", printable(drive.address));
  text += figure("time", elapsedText(drive.elapsedMs));
  text += figure("commands", groupedNumber(totals.commandsIssued()) + " (" + kindsText(totals.issued) + ")");
  text += bytesLine("written", totals.bytesWritten, drive.elapsedMs);
  text += bytesLine("compared", totals.bytesCompared, drive.elapsedMs);
  if (totals.checked.total() != 0) {
    text += figure("checked", checkedText(totals.checked));
  }
  if (totals.checked.uncheckable() != 0) {
    text += figure("not checked", notCheckedText(totals.checked));
  }
  if (totals.blocksTrimmed != 0) {
    text += figure("trimmed", groupedNumber(totals.blocksTrimmed) + " blocks");
  }
  if (const std::string events = eventsText(totals); !events.empty()) {
    text += figure("events", events);
  }
  text += figure("findings", std::to_string(findings));
  if (drive.messages.warnings != 0 || drive.messages.errors != 0) {
    text += figure("agent said", groupedNumber(drive.messages.warnings) + " warnings, " +
                                     groupedNumber(drive.messages.errors) + " error lines");
  }
  if (drive.status == RunStatus::clean && totals.blocksCompared == 0) {
    text +=
        figure("note", "nothing was read back yet, so nothing was checked; run longer, or lower \"Min Queue Size\"");
  }
  for (size_t i = 0; i < drive.injections.size() && i < mostInjections; ++i) {
    text += figure(i == 0 ? "faults" : "", injectionText(drive.injections[i]));
  }
  if (drive.injections.size() > mostInjections) {
    text += figure("", "and " + groupedNumber(drive.injections.size() - mostInjections) + " more");
  }
  if (const std::string files = filesText(drive.messages); !files.empty()) {
    text += "  files left\n" + files;
  }
  return text;
}

/// The latest commands that covered the block, oldest first.
std::string latestCommandsText(const Explanation& explanation) {
  constexpr size_t shownCommands = 8;
  std::vector<const JournalEntry*> latest;
  for (const JournalEntry& command : explanation.commands) {
    if (command.covers(explanation.lba)) {
      latest.push_back(&command);
    }
  }
  if (latest.size() > shownCommands) {
    latest.erase(latest.begin(), latest.end() - shownCommands);
  }
  std::string text;
  for (const JournalEntry* command : latest) {
    char line[160];
    std::snprintf(line, sizeof line, "%10llu  %-9s  %12llu  %6u  %12.3f  %12.3f  0x%02X\n",
                  static_cast<unsigned long long>(command->commandId), commandKindName(command->kind),
                  static_cast<unsigned long long>(command->lba), command->blocks,
                  static_cast<double>(command->issuedUs) / 1000, static_cast<double>(command->finishedUs) / 1000,
                  static_cast<unsigned>(command->status));
    text += line;
  }
  return text.empty() ? text
                      : "\nThe latest commands over the block:\n"
                        "command id  kind                LBA  blocks     issued ms   finished ms  status\n" +
                            text;
}

std::string indented(const std::string& lines, size_t indent) {
  std::istringstream in(lines);
  std::string text;
  for (std::string line; std::getline(in, line);) {
    text += std::string(indent, ' ') + line + "\n";
  }
  return text;
}

}  // namespace

std::string verdictText(const DriveResult& drive) {
  std::string verdict = runStatusName(drive.status);
  if (drive.status == RunStatus::clean) {
    return verdict;
  }
  for (char& c : verdict) {
    c = static_cast<char>(c >= 'a' && c <= 'z' ? c - 'a' + 'A' : c);
  }
  return drive.error.empty() ? verdict : verdict + ": " + printable(drive.error);
}

std::string resultLine(RunStatus status) {
  if (status == RunStatus::clean) {
    return "Result: clean, nothing found";
  }
  return std::string("Result: ") + runStatusName(status) + " (exit status " + std::to_string(exitStatusOf(status)) +
         ")";
}

std::string explanationText(const Explanation& explanation) {
  constexpr size_t width = 110;
  constexpr size_t indent = 4;
  constexpr size_t shownLines = 6;  // the report has them all
  std::string text;
  for (const std::string& sentence : explanation.sentences) {
    text += wrapText(printable(sentence), width, indent);
  }
  text += indented(latestCommandsText(explanation), indent);
  if (!explanation.driveBlock.empty() && !explanation.referenceBlock.empty()) {
    text += "\n" + indented(hexComparison(explanation.driveBlock, explanation.referenceBlock, shownLines), indent);
  }
  return text;
}

std::string summaryText(const RunSettings& settings, const RunResult& result,
                        const std::vector<std::optional<Explanation>>& explanations) {
  std::string text;
  for (size_t i = 0; i < result.drives.size(); ++i) {
    const DriveResult& drive = result.drives[i];
    size_t findings = 0;
    for (const Finding& finding : result.findings) {
      findings += finding.drive == drive.name ? 1U : 0U;
    }
    text += "\n" + driveSummary(drive, findings);
    if (i < explanations.size() && explanations[i]) {
      text += "  what was found\n" + explanationText(*explanations[i]);
    }
  }
  text += result.stopped ? "\nStopped before its end.\n" : "\n";
  text += "Repeat with:\n  " + shellLine(repeatCommand(settings)) + "\n";
  if (!result.findings.empty()) {
    text += "Run it to the finding again with:\n  " + replayLine(settings) + "\n";
  }
  return text + resultLine(result.status) + "\n";
}

}  // namespace corvane::host
