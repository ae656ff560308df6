#pragma once

#include <string>
#include <string_view>

namespace corvane::host {

/// A text as it may stand in an XML 1.0 document, between tags as well as in an attribute in double quotes: what has a
/// meaning is escaped, control characters (but tabs and line breaks) and the two code points that XML excludes are
/// left out, and bytes that are not UTF-8 become U+FFFD.
std::string xmlText(std::string_view text);

}  // namespace corvane::host
