#include "host/base/SystemFile.h"

#include <fstream>
#include <sstream>

namespace corvane::host {

std::string contentOf(const std::string& path) {
  const std::ifstream file(path, std::ios::binary);
  std::ostringstream text;
  // Iterators over the buffer would throw when a read fails; this only ends.
  text << file.rdbuf();
  return text.str();
}

}  // namespace corvane::host
