#include <cstdio>
#include <exception>
#include <fstream>
#include <stdexcept>
#include <string>

#include "host/cli/BashCompletion.h"
#include "host/cli/ManPage.h"
#include "host/cli/Program.h"

// Not a command of the program itself: packages have what it writes, and nobody needs it twice.
int main(int argc, char** argv) {
  using namespace corvane::host;
  try {
    const std::string kind = argc == 3 ? argv[1] : "";
    if (kind != "man" && kind != "bash") {
      throw std::runtime_error("give 'man' or 'bash', and a file to write");
    }
    std::string text;
    describeProgram([&](const CLI::App& app) { text = kind == "man" ? manPage(app) : bashCompletion(app); });
    std::ofstream file(argv[2], std::ios::binary);
    if (!(file << text << std::flush)) {
      throw std::runtime_error(std::string("cannot write ") + argv[2]);
    }
    return 0;
  } catch (const std::exception& error) {
    std::fprintf(stderr, "corvane_manuals: %s\n", error.what());
    return 2;
  }
}
