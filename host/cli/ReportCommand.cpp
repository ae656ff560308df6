#include "host/cli/ReportCommand.h"

#include "host/cli/ExitStatus.h"
#include "host/cli/FlagValues.h"
#include "host/cli/OutputFiles.h"
#include "host/cli/UsageError.h"
#include "host/report/HtmlPage.h"
#include "host/report/ReportError.h"
#include "host/report/TextReport.h"

namespace corvane::host {
namespace {

constexpr const char* reportGroup = "The report";
constexpr const char* outputFlag = "--output";

constexpr const char* examples = R"(Examples:
  corvane report corvane-out
  corvane report corvane-out/result.json --output finding.html
  corvane report corvane-out --text

RUN is the folder that a run wrote to, or its result.json. Exit status: 0 when the report was made, 2 when not.)";

/// Refuses a page in place of what the report is made of.
void checkKeepsEvidence(const std::string& page, const report::RunFolder& folder, const report::RunReport& run) {
  const auto check = [&page](const std::filesystem::path& evidence) {
    std::error_code ignored;
    if (std::filesystem::equivalent(page, evidence, ignored)) {
      throw UsageError(std::string(outputFlag) + " '" + page +
                       "' is what the report is made of; name another file, such as report.html");
    }
  };
  check(run.resultFile);
  for (const report::FindingView& view : run.findings) {
    for (const std::string& file : view.finding.files) {
      check(folder.find(file).value_or(std::filesystem::path()));
    }
  }
}

}  // namespace

ReportCommandLine::ReportCommandLine(CLI::App& report) {
  report.add_option("RUN", run_, "The folder of a run, or its result.json")->type_name("");
  addCollected(report, reportGroup, outputFlag, "FILE",
               "The page; replaced when it is there. Default: report.html in the folder of the result.", output_);
  report.add_flag("--text", text_, "Prints the report instead of making a page.")
      ->disable_flag_override()
      ->group(reportGroup);
  report.footer(examples);
}

ReportCommandLine::Settings ReportCommandLine::settings() const {
  if (run_.empty() || run_.front().empty()) {
    throw UsageError("'corvane report' needs a run; name the folder that 'corvane run' wrote to, or its result.json");
  }
  if (run_.size() > 1) {
    throw UsageError("'" + run_[1] + "' is one word too many for 'corvane report'; name one run");
  }
  Settings settings;
  settings.run = run_.front();
  settings.text = text_;
  if (const std::string* text = onlyValue(outputFlag, output_)) {
    checkNotEmpty(outputFlag, *text, "a file");
    settings.output = *text;
  }
  if (settings.text && !settings.output.empty()) {
    throw UsageError("--text prints the report and --output is about the page; give one of them");
  }
  return settings;
}

int showReport(const ReportCommandLine::Settings& settings, Console& out) try {
  const report::RunFolder folder(settings.run);
  const std::string page = settings.output.empty() ? (folder.folder() / "report.html").string() : settings.output;
  if (!settings.text) {
    checkReplaceable(outputFlag, page);
  }
  const report::RunReport run = report::readRun(folder);
  if (settings.text) {
    out.write(report::textReport(run, {.colours = out.isTerminal(), .columns = out.columns()}));
    return exit_status::clean;
  }
  checkKeepsEvidence(page, folder, run);
  replaceFile(outputFlag, page, report::htmlPage(run));
  out.line("Report: " + page);
  return exit_status::clean;
} catch (const report::ReportError& error) {
  throw UsageError(error.what());
}

}  // namespace corvane::host
