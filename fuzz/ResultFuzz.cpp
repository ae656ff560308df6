// The document of a run that somebody hands over, and what a report makes of it. No file that it names is read.

#include <nlohmann/json.hpp>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <optional>
#include <string>

#include "fuzz/Target.h"
#include "host/report/FindingView.h"
#include "host/report/HtmlPage.h"
#include "host/report/PageData.h"
#include "host/report/ReportError.h"
#include "host/report/ResultDocument.h"
#include "host/report/RunFolder.h"
#include "host/report/RunReport.h"
#include "host/report/TextReport.h"

using corvane::fuzz::require;
using corvane::fuzz::requireMessage;
using namespace corvane::host::report;

namespace {

namespace fs = std::filesystem;

/// A folder with a result and nothing else, gone at the end.
class EmptyRun {
 public:
  EmptyRun() {
    std::string name = (fs::temp_directory_path() / "corvane-XXXXXX").string();
    require(mkdtemp(name.data()) != nullptr, "a temporary folder can be made");
    path_ = name;
    std::ofstream(path_ / "result.json") << "{}";
  }
  ~EmptyRun() {
    std::error_code ignored;
    fs::remove_all(path_, ignored);
  }
  EmptyRun(const EmptyRun&) = delete;
  EmptyRun& operator=(const EmptyRun&) = delete;

  RunFolder folder() const { return RunFolder(path_.string()); }

 private:
  fs::path path_;
};

size_t countOf(std::string_view text, std::string_view wanted) {
  size_t count = 0;
  for (size_t at = text.find(wanted); at != std::string_view::npos; at = text.find(wanted, at + wanted.size())) {
    ++count;
  }
  return count;
}

std::optional<ResultDocument> read(std::string_view text) {
  try {
    const ResultDocument result = parseResult(text, "f.json");
    require(looksLikeResult(text), "what is read as a result looks like one");
    return result;
  } catch (const ReportError& error) {
    requireMessage(error.what(), "'f.json'", text);
    return std::nullopt;
  }
}

RunReport reportOf(ResultDocument result) {
  static const EmptyRun run;
  static const RunFolder folder = run.folder();
  RunReport report;
  report.resultFile = "f.json";
  for (FindingOfResult& finding : result.findings) {
    finding.files.clear();
    report.findings.push_back(viewOf(finding, folder, result.drives.empty() ? 0 : result.drives[0].protectionBytes));
  }
  report.result = std::move(result);
  return report;
}

void checkText(const RunReport& report) {
  const std::string text = textReport(report, {});
  require(text.ends_with('\n'), "every line of a report ends");
  require(
      std::all_of(text.begin(), text.end(), [](char c) { return c == '\n' || static_cast<unsigned char>(c) >= 0x20; }),
      "no text of a result steers a terminal");
}

void checkPage(const RunReport& report) {
  const std::string data = pageData(report);
  require(std::all_of(data.begin(), data.end(),
                      [](char c) { return c >= 0x20 && c < 0x7F && c != '<' && c != '>' && c != '&'; }),
          "no text of a result leaves the page's data");
  require(nlohmann::json::accept(data), "the page's data are JSON");
  static const size_t elements = countOf(htmlPage(RunReport()), "<");
  require(countOf(htmlPage(report), "<") == elements, "no text of a result becomes a part of the page");
}

}  // namespace

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string_view text(reinterpret_cast<const char*>(data), size);
  if (std::optional<ResultDocument> result = read(text)) {
    const RunReport report = reportOf(std::move(*result));
    checkText(report);
    checkPage(report);
  }
  return 0;
}
