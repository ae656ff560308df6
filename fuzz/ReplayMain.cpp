// Runs a target over the files of a folder, without a fuzzer: what was found once stays found with every compiler.

#include <algorithm>
#include <cstdio>
#include <exception>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

#include "fuzz/Target.h"

namespace {

namespace fs = std::filesystem;

std::vector<fs::path> filesOf(const fs::path& folder) {
  std::vector<fs::path> files;
  for (const fs::directory_entry& entry : fs::directory_iterator(folder)) {
    if (entry.is_regular_file()) {
      files.push_back(entry.path());
    }
  }
  std::sort(files.begin(), files.end());
  return files;
}

bool replay(const fs::path& path) {
  std::ifstream file(path, std::ios::binary);
  const std::vector<char> content{std::istreambuf_iterator<char>(file), {}};
  if (!file.is_open() || file.bad()) {
    std::fprintf(stderr, "%s cannot be read\n", path.c_str());
    return false;
  }
  // Told before, because a broken property ends the program.
  std::fprintf(stderr, "%s\n", path.c_str());
  // Without a copy of just this size a sanitizer would not see a read behind the end.
  std::vector<uint8_t> input(content.size());
  std::copy(content.begin(), content.end(), input.begin());
  LLVMFuzzerTestOneInput(input.data(), input.size());
  return true;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 2) {
    std::fprintf(stderr, "usage: %s FOLDER\n", argv[0]);
    return 2;
  }
  try {
    const std::vector<fs::path> files = filesOf(argv[1]);
    if (files.empty()) {
      std::fprintf(stderr, "'%s' holds no inputs\n", argv[1]);
      return 1;
    }
    const bool good = std::all_of(files.begin(), files.end(), replay);
    std::printf("%zu inputs\n", files.size());
    return good ? 0 : 1;
  } catch (const std::exception& error) {
    std::fprintf(stderr, "%s\n", error.what());
    return 1;
  }
}
