#include "host/report/FindingView.h"

#include <algorithm>

#include "host/report/TraceReport.h"

namespace corvane::host::report {
namespace {

constexpr uintmax_t mostTraceBytes = 256U << 20;
constexpr uintmax_t mostDumpBytes = 1U << 20;
constexpr size_t listedLines = 3;

bool same(const ReportedCommand& a, const ReportedCommand& b) {
  return a.number == b.number && a.issued == b.issued && a.lba == b.lba;
}

/// The command's place among those shown; it is put there when it is missing.
ShownCommand& shown(std::vector<ShownCommand>& commands, const ReportedCommand& command) {
  const auto found = std::find_if(commands.begin(), commands.end(),
                                  [&](const ShownCommand& one) { return same(one.command, command); });
  if (found != commands.end()) {
    return *found;
  }
  const auto place = std::find_if(commands.begin(), commands.end(),
                                  [&](const ShownCommand& one) { return one.command.issued > command.issued; });
  return *commands.insert(place, ShownCommand{.command = command});
}

void showRecorded(FindingView& view, const Explanation& explanation) {
  for (const ReportedCommand& command : explanation.commands) {
    view.commands.push_back({.command = command});
  }
  std::stable_sort(view.commands.begin(), view.commands.end(),
                   [](const ShownCommand& a, const ShownCommand& b) { return a.command.issued < b.command.issued; });
  if (explanation.read) {
    shown(view.commands, *explanation.read).failingRead = true;
  }
  if (explanation.expectedWrite) {
    shown(view.commands, *explanation.expectedWrite).expectedWrite = true;
  }
  if (explanation.observedWrite) {
    shown(view.commands, *explanation.observedWrite).observedWrite = true;
  }
}

void noteUnread(FindingView& view, const TraceReport& trace, const std::string& file) {
  if (trace.unreadLines == 0) {
    return;
  }
  std::string numbers;
  for (size_t i = 0; i < trace.unread.size() && i < listedLines; ++i) {
    numbers += (numbers.empty() ? "" : ", ") + std::to_string(trace.unread[i].number);
  }
  numbers += trace.unreadLines > listedLines ? ", ..." : "";
  view.notes.push_back("Of '" + file + "' " + std::to_string(trace.unreadLines) +
                       (trace.unreadLines == 1 ? " line" : " lines") + " could not be read: " + numbers);
}

/// The last of the commands that is asked for and covers the block; nothing when none does.
template <typename Condition>
ShownCommand* lastOver(FindingView& view, Condition condition) {
  const auto found = std::find_if(view.commands.rbegin(), view.commands.rend(), [&](const ShownCommand& one) {
    return one.command.touches(*view.lba) && condition(one.command);
  });
  return found == view.commands.rend() ? nullptr : &*found;
}

void markTraced(FindingView& view, const std::optional<uint64_t>& failingId) {
  const auto reads = [](const ReportedCommand& c) { return c.reads() && !c.preRead; };
  ShownCommand* read =
      failingId ? lastOver(view, [&](const ReportedCommand& c) { return reads(c) && c.id == failingId; }) : nullptr;
  if (read == nullptr) {
    read = lastOver(view, reads);
    view.readIsGuessed = read != nullptr;
  }
  if (read != nullptr) {
    read->failingRead = true;
  }
  const auto writerOf = [&view](const Stamp& stamp) {
    return stamp.commandId
               ? lastOver(view, [&](const ReportedCommand& c) { return !c.reads() && c.id == stamp.commandId; })
               : nullptr;
  };
  if (ShownCommand* write = writerOf(view.expected)) {
    write->expectedWrite = true;
  }
  if (ShownCommand* write = view.observed.lba == view.lba ? writerOf(view.observed) : nullptr) {
    write->observedWrite = true;
  }
}

void showTraced(FindingView& view, const TraceReport& trace) {
  view.timed = false;
  TraceNeighbourhood around = commandsAround(trace, *view.lba);
  for (ReportedCommand& command : around.commands) {
    view.commands.push_back({.command = std::move(command)});
  }
  view.moments = std::move(around.moments);
  markTraced(view, around.failingId);
}

std::vector<uint8_t> dumpOf(const std::string& file, const RunFolder& folder, std::vector<std::string>& notes) {
  std::string problem;
  const auto text = file.empty() ? std::nullopt : folder.read(file, mostDumpBytes, problem);
  if (!problem.empty()) {
    notes.push_back("No bytes to show: " + problem);
  }
  return text ? std::vector<uint8_t>(text->begin(), text->end()) : std::vector<uint8_t>{};
}

void readBlocks(FindingView& view, const RunFolder& folder, const EvidenceFiles& files, uint64_t protectionBytes) {
  if (view.finding.explanation) {
    view.driveData = view.finding.explanation->driveData;
    view.referenceData = view.finding.explanation->referenceData;
  }
  if (view.driveData.empty() && view.referenceData.empty()) {
    view.driveData = dumpOf(files.drive, folder, view.notes);
    view.referenceData = dumpOf(files.reference, folder, view.notes);
  }
  const size_t bytes = std::max(view.driveData.size(), view.referenceData.size());
  const std::vector<uint8_t>& known = view.referenceData.empty() ? view.driveData : view.referenceData;
  constexpr size_t idLengthAt = 16;
  view.fields = blockFields(bytes, known.size() > idLengthAt ? known[idLengthAt] : 0, protectionBytes);
  if (!view.driveData.empty() && !view.referenceData.empty()) {
    view.differing = differingOffsets(view.driveData, view.referenceData);
  }
  view.observed = stampOf(view.driveData);
  view.expected = stampOf(view.referenceData);
}

void takeStamps(FindingView& view, const Explanation& explanation) {
  view.observed = explanation.observed.value_or(view.observed);
  view.expected = explanation.expected.value_or(view.expected);
}

}  // namespace

FindingView viewOf(const FindingOfResult& finding, const RunFolder& folder, uint64_t protectionBytes) {
  FindingView view;
  view.finding = finding;
  view.lba = finding.lba;
  const EvidenceFiles files = evidenceFiles(finding.files);
  readBlocks(view, folder, files, protectionBytes);
  if (finding.explanation) {
    view.lba = finding.explanation->lba.has_value() ? finding.explanation->lba : view.lba;
    takeStamps(view, *finding.explanation);
    view.history = historyRows(finding.explanation->history);
    showRecorded(view, *finding.explanation);
  }
  if ((!view.commands.empty() && !view.history.empty()) || files.trace.empty()) {
    return view;
  }
  std::string problem;
  const auto text = folder.read(files.trace, mostTraceBytes, problem);
  if (!text) {
    view.notes.push_back("No command sequence: " + problem);
    return view;
  }
  const TraceReport trace = readTrace(*text);
  noteUnread(view, trace, files.trace);
  view.history = view.history.empty() ? trace.history : view.history;
  view.lba = view.lba.has_value() ? view.lba : trace.lba;
  if (view.commands.empty() && view.lba) {
    showTraced(view, trace);
  }
  return view;
}

}  // namespace corvane::host::report
