#include "host/cli/RoffPage.h"

#include <algorithm>
#include <cctype>

namespace corvane::host {
namespace {

std::string escaped(std::string_view text) {
  std::string safe;
  for (const char c : text) {
    switch (c) {
      case '\\':
        safe += "\\e";
        break;
      case '-':
        safe += "\\-";  // not a hyphen: so that what is copied from the page is what was meant
        break;
      case '\'':
        safe += "\\(aq";
        break;
      case '"':
        safe += "\\(dq";
        break;
      case '`':
        safe += "\\(ga";
        break;
      case '^':
        safe += "\\(ha";
        break;
      case '~':
        safe += "\\(ti";
        break;
      default:
        safe += c;
    }
  }
  return safe;
}

std::string inCapitals(std::string_view text) {
  std::string capitals(text);
  std::transform(capitals.begin(), capitals.end(), capitals.begin(),
                 [](char c) { return static_cast<char>(std::toupper(static_cast<unsigned char>(c))); });
  return capitals;
}

/// A line of text that is no request, whatever it begins with.
std::string textLine(std::string_view text) { return (text.starts_with('.') ? "\\&" : "") + escaped(text) + "\n"; }

/// Calls `each` with every line; one line break at the end belongs to the last line.
template <typename Each>
void forEachLine(std::string_view text, const Each& each) {
  while (!text.empty()) {
    const size_t end = std::min(text.find('\n'), text.size());
    each(text.substr(0, end));
    text.remove_prefix(std::min(end + 1, text.size()));
  }
}

std::string_view withoutLeadingBlanks(std::string_view text) {
  return text.substr(std::min(text.find_first_not_of(' '), text.size()));
}

}  // namespace

RoffPage::RoffPage(std::string_view name, std::string_view section, std::string_view source, std::string_view manual) {
  text_ = ".TH " + escaped(inCapitals(name)) + " " + escaped(section) + " \"\" \"" + escaped(source) + "\" \"" +
          escaped(manual) + "\"\n.nh\n.ad l\n";
}

void RoffPage::name(std::string_view name, std::string_view summary) {
  section("Name");
  text_ += escaped(name) + " \\- " + escaped(summary) + "\n";
}

void RoffPage::section(std::string_view title) { line(".SH", inCapitals(title)); }

void RoffPage::subsection(std::string_view title) { line(".SS", title); }

void RoffPage::paragraph(std::string_view text) {
  text_ += ".PP\n";
  runningText(text);
}

void RoffPage::heading(std::string_view text) {
  text_ += ".PP\n";
  line(".I", text);
}

void RoffPage::item(std::string_view word, std::string_view value, std::string_view text) {
  text_ += ".TP\n\\fB" + escaped(word) + "\\fR";
  if (!value.empty()) {
    text_ += " \\fI" + escaped(value) + "\\fR";
  }
  text_ += "\n";
  runningText(text);
}

void RoffPage::example(std::string_view lines) {
  text_ += ".PP\n.EX\n";
  forEachLine(lines, [this](std::string_view one) { text_ += one.empty() ? "\\&\n" : textLine(one); });
  text_ += ".EE\n";
}

void RoffPage::line(std::string_view macro, std::string_view text) {
  text_.append(macro).append(" \"").append(escaped(text)).append("\"\n");
}

void RoffPage::runningText(std::string_view text) {
  bool first = true;
  forEachLine(text, [this, &first](std::string_view one) {
    const std::string_view words = withoutLeadingBlanks(one);
    if (words.empty()) {
      return;
    }
    text_ += (first ? "" : ".br\n") + textLine(words);
    first = false;
  });
}

}  // namespace corvane::host
