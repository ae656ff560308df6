#include "host/base/JsonNesting.h"

namespace corvane::host {

bool nestsTooDeep(std::string_view json) {
  size_t depth = 0;
  bool inText = false;
  for (size_t i = 0; i < json.size(); ++i) {
    const char c = json[i];
    if (inText) {
      inText = c != '"';
      i += c == '\\' ? 1 : 0;
    } else if (c == '"') {
      inText = true;
    } else if (c == '[' || c == '{') {
      if (++depth > mostJsonNesting) {
        return true;
      }
    } else if ((c == ']' || c == '}') && depth != 0) {
      --depth;
    }
  }
  return false;
}

}  // namespace corvane::host
