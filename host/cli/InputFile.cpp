#include "host/cli/InputFile.h"

#include <array>
#include <cerrno>
#include <cstdio>
#include <memory>
#include <system_error>

#include "host/cli/UsageError.h"

namespace corvane::host {

std::string readInputFile(std::string_view what, const std::string& path, size_t longest, std::string_view remedy) {
  const auto refuse = [&](const std::string& fault) {
    throw UsageError(std::string(what) + " '" + path + "' " + fault + "; " + std::string(remedy));
  };
  const std::unique_ptr<std::FILE, int (*)(std::FILE*)> file(std::fopen(path.c_str(), "rbe"), &std::fclose);
  if (file == nullptr) {
    refuse("cannot be read: " + std::generic_category().message(errno));
  }
  std::string text;
  std::array<char, 65536> piece{};
  while (text.size() <= longest) {
    const size_t got = std::fread(piece.data(), 1, piece.size(), file.get());
    if (got == 0) {
      break;
    }
    text.append(piece.data(), got);
  }
  if (std::ferror(file.get()) != 0) {
    refuse("cannot be read: " + std::generic_category().message(errno));
  }
  if (text.size() > longest) {
    refuse("is longer than " + std::to_string(longest >> 20) + " MiB, so it is none");
  }
  return text;
}

}  // namespace corvane::host
