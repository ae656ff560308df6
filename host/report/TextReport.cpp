#include "host/report/TextReport.h"

#include "host/base/TextFormat.h"
#include "host/report/TextReportParts.h"

namespace corvane::host::report {
namespace {

std::string headline(const RunReport& report, const TextStyle& style) {
  const ResultDocument& result = report.result;
  std::string line = "Result: " + printable(result.status);
  if (!result.findings.empty()) {
    line += ", " + std::to_string(result.findings.size()) + (result.findings.size() == 1 ? " finding" : " findings");
  }
  return result.status == "clean" ? line : alarming(line, style);
}

std::string facts(const RunReport& report) {
  const ResultDocument& result = report.result;
  std::string line = printable(report.resultFile) + ": Corvane " + printable(result.version) + ", seed " +
                     std::to_string(result.seed) + ", " + elapsedText(result.elapsedMs);
  if (!result.started.empty()) {
    line += ", started " + printable(result.started);
  }
  return line + (result.stopped ? ", ended by a signal" : "");
}

}  // namespace

std::string alarming(const std::string& text, const TextStyle& style) {
  return style.colours ? "\x1b[1;31m" + text + "\x1b[0m" : text;
}

std::string textReport(const RunReport& report, const TextStyle& style) {
  const ResultDocument& result = report.result;
  std::string text = headline(report, style) + '\n' + wrapText(facts(report), style.columns, 0);
  if (!result.error.empty()) {
    text += wrapText("Error: " + printable(result.error), style.columns, 0);
  }
  for (const std::string& warning : result.warnings) {
    text += wrapText("Warning: " + printable(warning), style.columns, 0);
  }
  for (size_t i = 0; i < report.findings.size(); ++i) {
    text += '\n' + findingSection(report.findings[i], i + 1, style);
  }
  for (const DriveOfResult& drive : result.drives) {
    text += '\n' + driveSection(drive, style);
  }
  if (!result.repeat.empty()) {
    text += "\nRepeat with:\n  " + printable(shellLine(result.repeat)) + '\n';
  }
  return text;
}

}  // namespace corvane::host::report
