#include "host/base/SystemFile.h"

#include <array>
#include <fstream>

namespace corvane::host {

std::string contentOf(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  std::string text;
  // Iterators over the buffer would throw when a read fails; this only ends. A stream to write to would leave out what
  // it has no memory for; this throws.
  std::array<char, 4096> part{};
  while (file.read(part.data(), part.size()) || file.gcount() > 0) {
    text.append(part.data(), static_cast<size_t>(file.gcount()));
  }
  return text;
}

}  // namespace corvane::host
