#include "host/report/RunReport.h"

#include <algorithm>

namespace corvane::host::report {
namespace {

/// The drive of a finding; nullptr when the result has none like it.
const DriveOfResult* driveOf(const FindingOfResult& finding, const ResultDocument& result) {
  if (finding.driveIndex && *finding.driveIndex < result.drives.size()) {
    return &result.drives[*finding.driveIndex];
  }
  const auto found = std::find_if(result.drives.begin(), result.drives.end(),
                                  [&finding](const DriveOfResult& drive) { return drive.name == finding.drive; });
  return found == result.drives.end() ? nullptr : &*found;
}

}  // namespace

RunReport readRun(const RunFolder& folder) {
  RunReport report;
  report.resultFile = folder.resultFile();
  report.result = parseResult(folder.resultText(), folder.resultFile());
  for (const FindingOfResult& finding : report.result.findings) {
    const DriveOfResult* drive = driveOf(finding, report.result);
    report.findings.push_back(viewOf(finding, folder, drive == nullptr ? 0 : drive->protectionBytes));
  }
  return report;
}

}  // namespace corvane::host::report
