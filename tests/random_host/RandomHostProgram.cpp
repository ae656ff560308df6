// Drives the agent with random right and wrong behaviour of its host, for as many calls as one likes.
//
//   random_host [--calls N] [--seed S] [--agent PATH]
//
// The exit status is 1 when a call went wrong; what is needed to repeat it is printed. With --agent the built agent is
// loaded instead of the one in this program.

#include <dlfcn.h>

#include <CLI/CLI.hpp>
#include <cstdio>
#include <exception>
#include <filesystem>

#include "RandomHost.h"
#include "Texts.h"
#include "tests/support/TempFolder.h"

namespace {

using Entry = int (*)(vdl::AgentTable*);

Entry entryOf(const std::string& path) {
  if (path.empty()) {
    return &initAgent;
  }
  void* library = dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
  return library == nullptr ? nullptr : reinterpret_cast<Entry>(dlsym(library, "initAgent"));
}

void print(const randomhost::Report& report) {
  std::printf("%llu calls of execute in %llu episodes, %llu of them by good hosts\nresults:",
              static_cast<unsigned long long>(report.calls), static_cast<unsigned long long>(report.episodes),
              static_cast<unsigned long long>(report.lawful));
  for (const auto& [result, count] : report.results) {
    std::printf(" %d x%llu", result, static_cast<unsigned long long>(count));
  }
  std::printf("\nlast trace entry of a step:");
  for (const auto& [type, count] : report.issued) {
    std::printf(" %s x%llu", vdl::traceTypeName(type), static_cast<unsigned long long>(count));
  }
  std::printf("\nnever said:\n");
  for (const std::string& format : randomhost::neverSaid()) {
    std::printf("  %s\n", format.c_str());
  }
}

int run(const std::string& path, uint64_t calls, uint64_t seed) {
  const Entry entry = entryOf(path);
  vdl::AgentTable agent{};
  if (entry == nullptr || entry(&agent) != 0) {
    std::fprintf(stderr, "random_host: %s offers no agent\n", path.c_str());
    return 2;
  }
  const corvane::tests::TempFolder folder;
  std::filesystem::current_path(folder.path());
  std::filesystem::create_directory("files");
  const randomhost::Report report = randomhost::RandomHost(agent, folder / "files").run(calls, seed);
  print(report);
  if (!report.failure.empty()) {
    std::printf("WRONG: %s", report.failure.c_str());
    return 1;
  }
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  try {
    CLI::App app("Drives the agent with random right and wrong behaviour of its host");
    uint64_t calls = 100000;
    uint64_t seed = 1;
    std::string path;
    app.add_option("--calls", calls, "calls of execute")->capture_default_str();
    app.add_option("--seed", seed, "of the first episode")->capture_default_str();
    app.add_option("--agent", path, "a built agent to load");
    CLI11_PARSE(app, argc, argv);
    return run(path.empty() ? path : std::filesystem::absolute(path).string(), calls, seed);
  } catch (const std::exception& error) {
    std::fprintf(stderr, "random_host: %s\n", error.what());
    return 2;
  }
}
