#include <algorithm>
#include <string>

#include "CommandTrace.h"
#include "FileHelpers.h"
#include "vdl/Status.h"

namespace vdl {

namespace {

using Entry = CommandTrace::TraceInfo;

constexpr uint64_t noMask = ~uint64_t{0};

/// What the report prints of an entry that it shows.
struct Line {
  unsigned index;  ///< place in the full sequence
  char mark;       ///< '*': shares the media block with the LBA asked for
};

unsigned long wide(uint64_t value) { return value; }

unsigned kcqNumber(const SenseParser::Kcq& kcq) {
  return static_cast<unsigned>(kcq.key) << 16 | static_cast<unsigned>(kcq.code) << 8 | kcq.qual;
}

unsigned uecNumber(const Entry& entry) { return entry.block & 0xFFFF; }

void printHeading(FILE* file, bool aboutMiscompare, uint64_t lba, uint64_t mask) {
  if (aboutMiscompare) {
    std::fprintf(file, "Dump of all commands that include the miscompare LBA 0x%016lX:\n", wide(lba));
    if (mask != noMask) {
      std::fputs(" * indicates media block overlap\n", file);
    }
    std::fputs("\n", file);
  } else {
    std::fputs("\nDump of the full command sequence:\n\n", file);
  }
  std::fputs("   Idx  CmdID       TAG   COMMAND             LBA                 TL      BUCKET    UEC     KCQ\n", file);
  std::fprintf(file, "%s\n", std::string(98, '-').c_str());
}

void printIssuedWrite(FILE* file, const Entry& e, Line line) {
  std::fprintf(file, "%6u  %-10lu  0x%02X  %-18s  0x%016lX  0x%04X  0x%06X                 %c\n", line.index,
               wide(e.cmd_id), e.tag, traceTypeName(e.type), wide(e.lba), e.xfer_len, e.block, line.mark);
}

void printFinished(FILE* file, const Entry& e, Line line) {
  std::fprintf(file, "%6u  %-10lu  0x%02X  %-18s  0x%016lX  0x%04X            0x%04X  %06X %c\n", line.index,
               wide(e.cmd_id), e.tag, traceTypeName(e.type), wide(e.lba), e.xfer_len, uecNumber(e), kcqNumber(e.kcq),
               line.mark);
}

void printWithoutData(FILE* file, const Entry& e, Line line) {
  std::fprintf(file, "%6u  %-10lu  0x%02X  %-18s  0x%016lX  0x%04X                           %c\n", line.index,
               wide(e.cmd_id), e.tag, traceTypeName(e.type), wide(e.lba), e.xfer_len, line.mark);
}

void printIssuedRead(FILE* file, const Entry& e, Line line) {
  std::fprintf(file, "%6u  %-10lu  0x%02X  %-18s  0x%016lX  0x%04X %c0x%06X                 %c\n", line.index,
               wide(e.cmd_id), e.tag, traceTypeName(e.type), wide(e.lba), e.xfer_len, e.flag != 0 ? '!' : ' ', e.block,
               line.mark);
}

void printMiscompare(FILE* file, const Entry& e, Line line) {
  std::fprintf(file, "%6u  %-10lu        %-18s  0x%016lX   drive  0x%06X\n %61s reference %c0x%06X\n", line.index,
               wide(e.cmd_id), traceTypeName(e.type), wide(e.lba), e.tag, "", e.flag != 0 ? '!' : ' ', e.block);
}

void printWriteSplice(FILE* file, const Entry& e, Line line) {
  std::fprintf(file, "%6u                    %-18s  0x%016lX                    0x%04X  %06X\n", line.index,
               traceTypeName(e.type), wide(e.lba), uecNumber(e), kcqNumber(e.kcq));
}

void printOutOfOrder(FILE* file, const Entry& e, Line line) {
  std::fprintf(file, "%6u  %-10lu  0x%02X  %-18s  CmdID %-10lu\n", line.index, wide(e.cmd_id), e.tag,
               traceTypeName(e.type), wide(e.lba));
}

void printSyncFinished(FILE* file, const Entry& e, Line line) {
  std::fprintf(file, "%6u              0x%02X  Sync Cache Finished  %36s 0x%04X  %06X\n", line.index, e.tag, "",
               uecNumber(e), kcqNumber(e.kcq));
}

void printRange(FILE* file, const Entry& e, Line line) {
  std::fprintf(file, "%6u                    %-18s  0x%016lX - 0x%016lX\n", line.index, traceTypeName(e.type),
               wide(e.lba), wide(e.cmd_id));
}

void printUnnamed(FILE* file, const Entry& e, Line line) {
  std::fprintf(file, "%6u  %-10lu  0x%02X  0x%02hhX %-13s  0x%016lX  0x%04X  0x%06X  0x%04X  %06X\n", line.index,
               wide(e.cmd_id), e.tag, static_cast<unsigned char>(e.type), traceTypeName(e.type), wide(e.lba),
               e.xfer_len, e.block, uecNumber(e), kcqNumber(e.kcq));
}

void printEntry(FILE* file, const Entry& e, Line line) {
  switch (e.type) {
    case TraceType::WriteIssued:
    case TraceType::WriteAtomicIssued:
    case TraceType::WriteSameIssued:
      return printIssuedWrite(file, e, line);
    case TraceType::WriteFinished:
    case TraceType::ReadFinished:
    case TraceType::VerifyFinished:
      return printFinished(file, e, line);
    case TraceType::WriteAborted:
    case TraceType::TrimIssued:
    case TraceType::PreReadIssued:
    case TraceType::ReadAborted:
    case TraceType::VerifyAborted:
      return printWithoutData(file, e, line);
    case TraceType::ReadIssued:
    case TraceType::VerifyIssued:
      return printIssuedRead(file, e, line);
    case TraceType::Miscompare:
      return printMiscompare(file, e, line);
    case TraceType::WriteSplice:
      return printWriteSplice(file, e, line);
    case TraceType::RecvOutOfOrder:
      return printOutOfOrder(file, e, line);
    case TraceType::PowerToggleOff:
      std::fprintf(file, "%6u                    Power Toggle Off %10u ms\n", line.index, e.tag);
      return;
    case TraceType::PowerToggleOn:
      std::fprintf(file, "%6u                    Power Toggle On  %10u ms\n", line.index, e.tag);
      return;
    case TraceType::SyncIssued:
      std::fprintf(file, "%6u              0x%02X  Sync Cache Issued\n", line.index, e.tag);
      return;
    case TraceType::SyncFinished:
      return printSyncFinished(file, e, line);
    case TraceType::InvalidateRange:
    case TraceType::ZoneReset:
      return printRange(file, e, line);
    case TraceType::Unknown:
      break;
  }
  printUnnamed(file, e, line);
}

bool isDriveWide(TraceType type) { return type >= TraceType::PowerToggleOff && type <= TraceType::SyncFinished; }

/// Decides which entries a section shows.
struct Selection {
  bool filter;
  uint64_t lba;
  uint64_t mask;

  bool hit(const Entry& e) const { return e.lba <= lba && lba < e.lba + e.xfer_len; }

  bool sharesMediaBlock(const Entry& e) const {
    return mask != noMask && ((e.lba & mask) == (lba & mask) || ((e.lba + e.xfer_len - 1) & mask) == (lba & mask));
  }

  /// @param somethingShown an earlier entry of this section was printed
  bool shows(const Entry& e, bool somethingShown, char& mark) const {
    mark = ' ';
    if (e.type == TraceType::Unknown) {
      return false;
    }
    if (isDriveWide(e.type)) {
      return !filter || somethingShown;
    }
    if (e.type == TraceType::InvalidateRange) {
      return !filter || (e.lba <= lba && lba <= e.cmd_id);
    }
    if (hit(e)) {
      return true;
    }
    if (sharesMediaBlock(e)) {
      mark = '*';
      return true;
    }
    return !filter;
  }
};

}  // namespace

void CommandTrace::dumpCmdData(FILE* file, bool filter, bool miscompareHeader, uint64_t lba, uint64_t mask) const {
  printHeading(file, filter && miscompareHeader, lba, mask);
  const Selection selection{filter, lba, mask};
  const uint64_t entries = std::min(count_, trace_queue_size);
  uint64_t slot = count_ > trace_queue_size ? trace_idx : 0;
  bool somethingShown = false;
  for (uint64_t visit = 0; visit < entries; ++visit) {
    const TraceInfo& entry = ring_[slot];
    char mark = ' ';
    if (selection.shows(entry, somethingShown, mark)) {
      printEntry(file, entry, Line{static_cast<unsigned>(visit), mark});
      somethingShown = true;
    }
    if (++slot == trace_queue_size) {
      slot = 0;
    }
  }
}

int CommandTrace::createReport(DriveThread* drive, std::string path, bool miscompare, uint64_t lba,
                               uint64_t mask) const {
  EventLog& log = *drive->eventLog;
  int result = 0;
  FILE* file =
      fs::openFile(path, "w", result, fs::fallBackToCurrentDirectory | fs::numberedName | fs::createMissingParents);
  if (result == 6) {
    log.logf(2, "Could not use specifed file path, using temp file instead");
  }
  if (file == nullptr) {
    log.logf(2, "Could not open the file '%s' to dump the bucket compare command sequence", path.c_str());
    return status::reportNotOpened;
  }
  if (miscompare) {
    dumpCmdData(file, true, true, lba, mask);
  }
  if (!history_.empty()) {
    std::fprintf(file, "\n%s", history_.c_str());
  }
  dumpCmdData(file, false, miscompare, lba, mask);
  std::fclose(file);
  log.logf(miscompare ? 2 : 0, "Bucket compare command sequence saved to '%s'", path.c_str());
  return result;
}

}  // namespace vdl
