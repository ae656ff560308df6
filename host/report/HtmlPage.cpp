#include "host/report/HtmlPage.h"

#include "host/report/PageData.h"
#include "host/report/PageFiles.h"
#include "host/report/TextReport.h"

namespace corvane::host::report {
namespace {

constexpr size_t textColumns = 110;

/// Fills in one mark after the other, in their order in the page, so that nothing filled in is ever searched.
class Filling {
 public:
  explicit Filling(std::string_view page) : rest_(page) {}

  Filling& fill(std::string_view mark, std::string_view text) {
    const size_t at = rest_.find(mark);
    done_ += rest_.substr(0, at);
    done_ += text;
    rest_.remove_prefix(at + mark.size());
    return *this;
  }

  std::string finished() { return done_ + std::string(rest_); }

 private:
  std::string done_;
  std::string_view rest_;
};

}  // namespace

std::string htmlEscaped(std::string_view text) {
  std::string safe;
  safe.reserve(text.size());
  for (const char c : text) {
    switch (c) {
      case '<':
        safe += "&lt;";
        break;
      case '>':
        safe += "&gt;";
        break;
      case '&':
        safe += "&amp;";
        break;
      case '"':
        safe += "&quot;";
        break;
      case '\'':
        safe += "&#39;";
        break;
      default:
        safe += c;
    }
  }
  return safe;
}

std::string htmlPage(const RunReport& report) {
  return Filling(pageHtml)
      .fill("/*STYLE*/", pageStyle)
      .fill("<!--TEXT-->", htmlEscaped(textReport(report, {.columns = textColumns})))
      .fill("/*DATA*/", pageData(report))
      .fill("/*SCRIPT*/", pageScript)
      .finished();
}

}  // namespace corvane::host::report
