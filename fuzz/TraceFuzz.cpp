// Command sequences: what the agent writes is read back entry for entry, and what nobody wrote is read without harm.

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "fuzz/InputBytes.h"
#include "fuzz/Target.h"
#include "host/report/TraceCommands.h"
#include "host/report/TraceReport.h"
#include "plugin/Write_Data_Gen/CommandTrace.h"

using corvane::fuzz::InputBytes;
using corvane::fuzz::require;
using namespace corvane::host::report;
using vdl::CommandTrace;
using vdl::TraceType;

namespace {

constexpr size_t listedLines = 20;
constexpr size_t shownOfALine = 60;
constexpr size_t mostCommands = 300;
constexpr uint64_t noMask = ~uint64_t{0};

size_t countOf(std::string_view text, char wanted) {
  return static_cast<size_t>(std::count(text.begin(), text.end(), wanted));
}

bool sameEntry(const TraceEntry& a, const TraceEntry& b) {
  return a.index == b.index && a.event == b.event && a.kind == b.kind && a.preRead == b.preRead &&
         a.commandId == b.commandId && a.tag == b.tag && a.lba == b.lba && a.blocks == b.blocks &&
         a.endLba == b.endLba && a.bucket == b.bucket && a.found == b.found && a.invalidated == b.invalidated &&
         a.unitError == b.unitError && a.sense == b.sense && a.overtaken == b.overtaken;
}

bool sameReport(const TraceReport& a, const TraceReport& b) {
  return a.lba == b.lba && a.unreadLines == b.unreadLines && a.history.size() == b.history.size() &&
         std::ranges::equal(a.aboutBlock, b.aboutBlock, sameEntry) && std::ranges::equal(a.all, b.all, sameEntry);
}

void checkNeighbourhood(const TraceReport& report, uint64_t lba) {
  const TraceNeighbourhood around = commandsAround(report, lba);
  require(around.commands.size() <= mostCommands, "the commands around a block are bounded");
  require(around.moments.size() <= mostCommands, "the moments around a block are bounded");
  const std::vector<TraceEntry>& entries = report.all.empty() ? report.aboutBlock : report.all;
  require(around.commands.size() + around.moments.size() <= entries.size(), "nothing is made up around a block");
  for (const ReportedCommand& command : around.commands) {
    require(!command.kind.empty() && command.blocks != 0, "a command around a block has a kind and blocks");
  }
}

/// Any bytes.
void readAnything(std::string_view text) {
  const TraceReport report = readTrace(text);
  require(report.unread.size() == std::min(report.unreadLines, listedLines), "the first unread lines are listed");
  for (const UnreadLine& line : report.unread) {
    require(line.number >= 1 && line.number <= countOf(text, '\n') + 1, "an unread line is one of the text");
    require(line.text.size() <= shownOfALine && text.find(line.text) != std::string_view::npos,
            "an unread line is shown by its beginning");
  }
  const size_t rows = report.all.size() + report.aboutBlock.size() + report.history.size();
  require(rows + report.unreadLines <= countOf(text, '\n') + 1, "a line is read once");
  checkNeighbourhood(report, report.lba.value_or(0));
  if (!report.all.empty()) {
    checkNeighbourhood(report, report.all.back().lba);
  }

  // How lines end decides nothing, unless an end stands where it is none.
  if (text.find('\r') == std::string_view::npos) {
    std::string other;
    for (const char c : text) {
      if (c == '\n') {
        other += '\r';
      }
      other += c;
    }
    require(sameReport(readTrace(other), report), "a report with other ends of lines is the same report");
  }
}

vdl::SenseParser::Kcq kcqOf(InputBytes& input) {
  return {input.number<uint8_t>(), input.number<uint8_t>(), input.number<uint8_t>()};
}

/// Traces one entry, as the agent does while it tests.
void traceOne(CommandTrace& trace, TraceType type, InputBytes& input) {
  const auto lba = input.number<uint64_t>();
  const auto id = input.number<uint64_t>();
  const uint32_t length = input.number<uint16_t>();
  const uint32_t tag = input.number<uint16_t>() % CommandTrace::tagCount;
  const vdl::BlockNum block = input.number<uint32_t>() & 0xFFFFFF;
  const bool flag = (input.number<uint8_t>() & 1) != 0;
  const auto uec = input.number<uint16_t>();
  switch (type) {
    case TraceType::Unknown:
      return;
    case TraceType::WriteIssued:
      return trace.traceWriteIssued(lba, length, id, tag, block);
    case TraceType::WriteFinished:
      return trace.traceWriteFinished(lba, length, id, tag, uec, kcqOf(input));
    case TraceType::WriteAborted:
      return trace.traceWriteAborted(lba, length, id, tag);
    case TraceType::WriteAtomicIssued:
      return trace.traceWriteAtomicIssued(lba, length, id, tag, block);
    case TraceType::WriteSameIssued:
      return trace.traceWriteSameIssued(lba, length, id, tag, block);
    case TraceType::TrimIssued:
      return trace.traceTrimIssued(lba, length, id, tag);
    case TraceType::PreReadIssued:
      return trace.tracePreReadIssued(lba, length, id, tag);
    case TraceType::ReadIssued:
      return trace.traceReadIssued(lba, length, id, tag, block, flag);
    case TraceType::ReadFinished:
      return trace.traceReadFinished(lba, length, id, tag, uec, kcqOf(input));
    case TraceType::ReadAborted:
      return trace.traceReadAborted(lba, length, id, tag);
    case TraceType::VerifyIssued:
      return trace.traceVerifyIssued(lba, length, id, tag, block, flag);
    case TraceType::VerifyFinished:
      return trace.traceVerifyFinished(lba, length, id, tag, uec, kcqOf(input));
    case TraceType::VerifyAborted:
      return trace.traceVerifyAborted(lba, length, id, tag);
    case TraceType::Miscompare:
      return trace.traceMiscompare(lba, block, input.number<uint32_t>() & 0xFFFFFF, id, flag);
    case TraceType::WriteSplice:
      return trace.traceWriteSplice(lba, length, id, tag, uec, kcqOf(input));
    case TraceType::RecvOutOfOrder:
      return trace.traceRecvOutOfOrder(lba, tag, id);
    case TraceType::PowerToggleOff:
      return trace.tracePowerOff();
    case TraceType::PowerToggleOn:
      return trace.tracePowerOn();
    case TraceType::SyncIssued:
      return trace.traceSyncIssued(tag);
    case TraceType::SyncFinished:
      return trace.traceSyncFinished(tag, uec, kcqOf(input));
    case TraceType::InvalidateRange:
      return trace.traceInvalidate(lba, id);
    case TraceType::ZoneReset:
      return trace.traceZoneReset(lba, id);
  }
}

/// What a report made of the entry has to say; nothing where the report prints nothing for it.
struct Expected {
  TraceEvent event = TraceEvent::issued;
  const char* kind = "";
};

Expected expectedOf(TraceType type) {
  switch (type) {
    case TraceType::WriteIssued:
      return {TraceEvent::issued, "write"};
    case TraceType::WriteAtomicIssued:
      return {TraceEvent::issued, "atomic"};
    case TraceType::WriteSameIssued:
      return {TraceEvent::issued, "writesame"};
    case TraceType::TrimIssued:
      return {TraceEvent::issued, "trim"};
    case TraceType::PreReadIssued:
    case TraceType::ReadIssued:
      return {TraceEvent::issued, "read"};
    case TraceType::VerifyIssued:
      return {TraceEvent::issued, "verify"};
    case TraceType::WriteFinished:
      return {TraceEvent::finished, "write"};
    case TraceType::ReadFinished:
      return {TraceEvent::finished, "read"};
    case TraceType::VerifyFinished:
      return {TraceEvent::finished, "verify"};
    case TraceType::WriteAborted:
      return {TraceEvent::aborted, "write"};
    case TraceType::ReadAborted:
      return {TraceEvent::aborted, "read"};
    case TraceType::VerifyAborted:
      return {TraceEvent::aborted, "verify"};
    case TraceType::Miscompare:
      return {TraceEvent::miscompare, ""};
    case TraceType::WriteSplice:
      return {TraceEvent::writeSplice, ""};
    case TraceType::RecvOutOfOrder:
      return {TraceEvent::outOfOrder, ""};
    case TraceType::PowerToggleOff:
      return {TraceEvent::powerOff, ""};
    case TraceType::PowerToggleOn:
      return {TraceEvent::powerOn, ""};
    case TraceType::SyncIssued:
      return {TraceEvent::issued, "sync"};
    case TraceType::SyncFinished:
      return {TraceEvent::finished, "sync"};
    case TraceType::InvalidateRange:
      return {TraceEvent::rangeInvalidated, ""};
    case TraceType::ZoneReset:
      return {TraceEvent::zoneReset, ""};
    case TraceType::Unknown:
      break;
  }
  return {};
}

bool isPowerOrSync(TraceType type) { return type >= TraceType::PowerToggleOff && type <= TraceType::SyncFinished; }

bool isRange(TraceType type) { return type == TraceType::InvalidateRange || type == TraceType::ZoneReset; }

bool isIssueWithBucket(TraceType type) {
  return type == TraceType::WriteIssued || type == TraceType::WriteAtomicIssued || type == TraceType::WriteSameIssued ||
         type == TraceType::ReadIssued || type == TraceType::VerifyIssued;
}

bool isFinished(TraceType type) {
  return type == TraceType::WriteFinished || type == TraceType::ReadFinished || type == TraceType::VerifyFinished ||
         type == TraceType::SyncFinished || type == TraceType::WriteSplice;
}

void compareEntry(const CommandTrace::TraceInfo& written, const TraceEntry& read) {
  const Expected expected = expectedOf(written.type);
  require(read.event == expected.event && read.kind == expected.kind, "an entry is read as what it is");
  require(read.preRead == (written.type == TraceType::PreReadIssued), "a pre-read is one");
  if (written.type == TraceType::RecvOutOfOrder) {
    require(read.overtaken == written.lba, "the overtaken command is read back");
  } else if (!isPowerOrSync(written.type)) {
    require(read.lba == written.lba, "an LBA is read back");
  }
  if (isRange(written.type)) {
    require(read.endLba == written.cmd_id, "the end of a range is read back");
  } else if (!isPowerOrSync(written.type) && written.type != TraceType::WriteSplice) {
    require(read.commandId == written.cmd_id, "a command id is read back");
  }
  if (isIssueWithBucket(written.type) || written.type == TraceType::Miscompare) {
    require(read.bucket == written.block && read.invalidated == (written.flag != 0), "a bucket is read back");
  }
  if (isFinished(written.type)) {
    const uint64_t kcq =
        static_cast<uint64_t>(written.kcq.key) << 16 | static_cast<uint64_t>(written.kcq.code) << 8 | written.kcq.qual;
    require(read.sense == kcq && read.unitError == (written.block & 0xFFFF), "an outcome is read back");
  }
  if (written.type == TraceType::Miscompare) {
    require(read.found == written.tag, "what was found is read back");
  }
  if (!expected.kind[0]) {
    return;
  }
  require(read.tag == written.tag, "a tag is read back");
  require(read.blocks == written.xfer_len || isPowerOrSync(written.type), "a length is read back");
}

/// The text of the report's sections, in memory.
std::string reportOf(const CommandTrace& trace, bool aboutBlock, uint64_t lba, uint64_t mask) {
  char* memory = nullptr;
  size_t bytes = 0;
  std::FILE* file = open_memstream(&memory, &bytes);
  require(file != nullptr, "there is memory for a report");
  if (aboutBlock) {
    trace.dumpCmdData(file, true, true, lba, mask);
  }
  trace.dumpCmdData(file, false, aboutBlock, lba, mask);
  std::fclose(file);
  std::string text(memory, bytes);
  std::free(memory);
  return text;
}

/// A sequence as the agent traces it, written and read back.
void writeAndRead(InputBytes& input) {
  const bool aboutBlock = (input.number<uint8_t>() & 1) != 0;
  const uint64_t mask = (input.number<uint8_t>() & 1) != 0 ? ~uint64_t{7} : noMask;
  const auto lba = input.number<uint64_t>();
  CommandTrace trace(64);
  while (!input.atEnd() && trace.count() < trace.size()) {
    traceOne(trace, static_cast<TraceType>(input.number<uint8_t>() % 23), input);
  }
  const TraceReport report = readTrace(reportOf(trace, aboutBlock, lba, mask));
  require(report.unreadLines == 0, "every line of the agent's report is read");
  require(report.lba == (aboutBlock ? std::optional(lba) : std::nullopt), "the block of the report is read back");
  require(report.all.size() == trace.count(), "every entry of the agent's report is read");
  for (size_t i = 0; i < report.all.size(); ++i) {
    require(report.all[i].index == i, "entries are counted from 0");
    compareEntry(trace.entry(i), report.all[i]);
  }
  for (const TraceEntry& entry : report.aboutBlock) {
    require(entry.index < report.all.size() && sameEntry(entry, report.all[entry.index]),
            "what is about the block is a part of the whole sequence");
  }
  checkNeighbourhood(report, lba);
}

}  // namespace

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  InputBytes input(data, size);
  if (input.number<uint8_t>() == 'A') {
    writeAndRead(input);
  } else {
    readAnything({reinterpret_cast<const char*>(data), size});
  }
  return 0;
}
