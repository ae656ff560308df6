#include "host/cli/RunJunit.h"

#include <array>
#include <cinttypes>
#include <cstdio>
#include <vector>

#include "host/base/TextFormat.h"
#include "host/cli/RunSummary.h"
#include "host/cli/XmlText.h"
#include "host/drive/DriveAddress.h"

namespace corvane::host {
namespace {

/// One drive's case.
struct JunitCase {
  std::string name;
  uint64_t elapsedMs = 0;
  RunStatus status = RunStatus::clean;
  std::string message;  ///< of a case that is not clean
  std::string details;
  std::string output;
};

std::string attribute(const char* name, std::string_view value) {
  return std::string(" ") + name + "=\"" + xmlText(value) + "\"";
}

std::string secondsText(uint64_t ms) {
  std::array<char, 32> text{};
  std::snprintf(text.data(), text.size(), "%" PRIu64 ".%03" PRIu64, ms / 1000, ms % 1000);
  return text.data();
}

std::string caseText(const JunitCase& one) {
  std::string text = "  <testcase" + attribute("classname", "corvane.run") + attribute("name", one.name) +
                     attribute("time", secondsText(one.elapsedMs)) + ">\n";
  if (one.status != RunStatus::clean) {
    const std::string element = one.status == RunStatus::dataFailure ? "failure" : "error";
    text += "    <" + element + attribute("type", runStatusName(one.status)) + attribute("message", one.message) + ">" +
            xmlText(one.details) + "</" + element + ">\n";
  }
  return text + "    <system-out>" + xmlText(one.output) + "</system-out>\n  </testcase>\n";
}

std::string documentText(const RunSettings& settings, uint64_t elapsedMs, const std::vector<JunitCase>& cases) {
  size_t failures = 0;
  size_t errors = 0;
  std::string body;
  for (const JunitCase& one : cases) {
    failures += one.status == RunStatus::dataFailure ? 1U : 0U;
    errors += one.status != RunStatus::clean && one.status != RunStatus::dataFailure ? 1U : 0U;
    body += caseText(one);
  }
  return "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<testsuite" + attribute("name", "corvane run") +
         attribute("tests", std::to_string(cases.size())) + attribute("failures", std::to_string(failures)) +
         attribute("errors", std::to_string(errors)) + attribute("skipped", "0") +
         attribute("time", secondsText(elapsedMs)) + ">\n  <properties>\n    <property" + attribute("name", "seed") +
         attribute("value", std::to_string(settings.test.seed)) + "/>\n  </properties>\n" + body + "</testsuite>\n";
}

std::string repeatText(const RunSettings& settings) {
  return "Repeat with:\n" + shellLine(repeatCommand(settings)) + "\n";
}

std::string detailsOf(const DriveResult& drive, const RunResult& result) {
  std::string text;
  for (const Finding& finding : result.findings) {
    if (finding.drive != drive.name) {
      continue;
    }
    text += finding.text + "\nstatus of the agent: " + std::to_string(finding.agentStatus) + "\n";
    if (finding.lba) {
      text += "LBA: " + std::to_string(*finding.lba) + "\n";
    }
    for (const std::string& file : finding.files) {
      text += "file: " + file + "\n";
    }
  }
  return text.empty() ? drive.error + "\n" : text;
}

}  // namespace

std::string runJunit(const RunSettings& settings, const RunResult& result) {
  const std::string ending = (result.stopped ? "Stopped before its end.\n" : "") + repeatText(settings);
  std::vector<JunitCase> cases;
  for (const DriveResult& drive : result.drives) {
    JunitCase& one = cases.emplace_back();
    one.name = drive.name;
    one.elapsedMs = drive.elapsedMs;
    one.status = drive.status;
    one.message = drive.error;
    one.details = detailsOf(drive, result);
    one.output = "Drive " + drive.address + ": " + verdictText(drive) + "\n" + ending;
  }
  return documentText(settings, result.elapsedMs, cases);
}

std::string failedRunJunit(const RunSettings& settings, RunStatus status, std::string_view error) {
  std::vector<JunitCase> cases;
  for (const std::string& address : settings.test.driveAddresses) {
    JunitCase& one = cases.emplace_back();
    one.name = maskedAddress(address);
    one.status = status;
    one.message = error;
    one.details = std::string(error) + "\n";
    one.output = repeatText(settings);
  }
  return documentText(settings, 0, cases);
}

}  // namespace corvane::host
