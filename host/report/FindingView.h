#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "host/report/BlockBytes.h"
#include "host/report/HistoryTable.h"
#include "host/report/ResultDocument.h"
#include "host/report/RunFolder.h"
#include "host/report/TraceCommands.h"

namespace corvane::host::report {

/// A command of a finding's picture, and why it is remarkable.
struct ShownCommand {
  ReportedCommand command;
  bool failingRead = false;    ///< met the wrong block
  bool expectedWrite = false;  ///< wrote what should have been there
  bool observedWrite = false;  ///< wrote what was there
};

/// Everything that a report shows of a finding, whether the result tells it or the files beside it do.
struct FindingView {
  FindingOfResult finding;
  std::optional<uint64_t> lba;
  std::vector<ShownCommand> commands;  ///< around the block, in the order of their issue
  std::vector<Moment> moments;
  bool timed = true;           ///< whether `issued` and `finished` are microseconds; else places in a sequence
  bool readIsGuessed = false;  ///< the failing read is only the last one of the block
  std::vector<uint8_t> driveData;
  std::vector<uint8_t> referenceData;
  std::vector<BlockField> fields;
  std::vector<size_t> differing;  ///< offsets
  Stamp observed;
  Stamp expected;
  std::vector<HistoryRow> history;
  std::vector<std::string> notes;  ///< what could not be told and why
};

/// Collects what there is about a finding.
///
/// @param protectionBytes of the drive's blocks
FindingView viewOf(const FindingOfResult& finding, const RunFolder& folder, uint64_t protectionBytes);

}  // namespace corvane::host::report
