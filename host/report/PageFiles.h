#pragma once

#include <string_view>

namespace corvane::host::report {

/// The files of the page, built into the program.

extern const std::string_view pageHtml;    ///< with the three marks that HtmlPage fills in
extern const std::string_view pageStyle;   ///< CSS
extern const std::string_view pageScript;  ///< JavaScript, all of its files in their order

}  // namespace corvane::host::report
