#include "host/run/RunResult.h"

#include <algorithm>
#include <numeric>

#include "vdl/Status.h"

namespace corvane::host {
namespace {

int severity(RunStatus status) {
  switch (status) {
    case RunStatus::clean:
      return 0;
    case RunStatus::configuration:
      return 1;
    case RunStatus::drive:
      return 2;
    case RunStatus::internal:
      return 3;
    case RunStatus::dataFailure:
      return 4;
  }
  return 3;
}

}  // namespace

const char* runStatusName(RunStatus status) {
  switch (status) {
    case RunStatus::clean:
      return "clean";
    case RunStatus::dataFailure:
      return "data failure";
    case RunStatus::configuration:
      return "configuration error";
    case RunStatus::drive:
      return "drive error";
    case RunStatus::internal:
      break;
  }
  return "internal error";
}

RunStatus worse(RunStatus a, RunStatus b) { return severity(a) >= severity(b) ? a : b; }

RunStatus statusOfAgentCode(int32_t agentStatus) {
  switch (agentStatus) {
    case vdl::status::ok:
      return RunStatus::clean;
    case vdl::status::miscompare:
    case vdl::status::writeSplice:
    case vdl::status::atomicOrder:
      return RunStatus::dataFailure;
    case vdl::status::badQueueRange:
    case vdl::status::missingSetting:
    case vdl::status::incompatibleOptions:
      return RunStatus::configuration;
    default:
      return RunStatus::internal;
  }
}

uint64_t DriveTotals::commandsIssued() const { return std::accumulate(issued.begin(), issued.end(), uint64_t{0}); }

uint64_t DriveTotals::commandsCompleted() const {
  return std::accumulate(completed.begin(), completed.end(), uint64_t{0});
}

DriveTotals& DriveTotals::operator+=(const DriveTotals& other) {
  for (size_t kind = 0; kind < commandKinds; ++kind) {
    issued[kind] += other.issued[kind];
    completed[kind] += other.completed[kind];
  }
  failed += other.failed;
  blocksWritten += other.blocksWritten;
  bytesWritten += other.bytesWritten;
  blocksTrimmed += other.blocksTrimmed;
  blocksRead += other.blocksRead;
  bytesRead += other.bytesRead;
  blocksCompared += other.blocksCompared;
  bytesCompared += other.bytesCompared;
  checked += other.checked;
  resets += other.resets;
  powerCycles += other.powerCycles;
  connectionsLost += other.connectionsLost;
  zoneResets += other.zoneResets;
  invalidations += other.invalidations;
  heldBack += other.heldBack;
  retried += other.retried;
  stray += other.stray;
  outstanding += other.outstanding;
  maxOutstanding = std::max(maxOutstanding, other.maxOutstanding);
  return *this;
}

std::optional<Finding> findingOf(const DriveResult& drive) {
  if (statusOfAgentCode(drive.agentStatus) != RunStatus::dataFailure) {
    return std::nullopt;
  }
  Finding finding;
  finding.drive = drive.name;
  finding.moment = drive.moment;
  finding.agentStatus = drive.agentStatus;
  finding.lba = drive.findingLba;
  finding.text = drive.error;
  finding.files = drive.messages.reports;
  finding.files.insert(finding.files.end(), drive.messages.dumps.begin(), drive.messages.dumps.end());
  return finding;
}

DriveTotals RunResult::totals() const {
  DriveTotals sum;
  for (const DriveResult& drive : drives) {
    sum += drive.totals;
  }
  return sum;
}

}  // namespace corvane::host
