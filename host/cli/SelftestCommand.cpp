#include "host/cli/SelftestCommand.h"

#include <algorithm>
#include <filesystem>
#include <thread>

#include "host/base/NearestName.h"
#include "host/cli/Console.h"
#include "host/cli/ExitStatus.h"
#include "host/cli/FlagValues.h"
#include "host/cli/OutputFiles.h"
#include "host/cli/QuietStreams.h"
#include "host/cli/SelftestText.h"
#include "host/cli/UsageError.h"
#include "host/cli/ValueParsers.h"
#include "host/run/PluginLoader.h"
#include "host/selftest/Campaign.h"

namespace corvane::host {
namespace {

constexpr const char* selftestGroup = "The campaign";
constexpr uint64_t quickFaultSeeds = 6;
constexpr uint64_t quickCleanSeeds = 40;
constexpr uint64_t fullFaultSeeds = 800;
constexpr uint64_t fullLeastRuns = 4800;
constexpr uint64_t fullCleanCommands = 320;  ///< many short tests rather than few long ones
constexpr uint64_t fullCleanSeeds = 10'000;
constexpr uint64_t mostSeeds = 10'000'000;
constexpr uint32_t mostJobs = 1024;

constexpr const char* examples = R"(Examples:
  Every class, a few seeds:
    corvane selftest --quick
  One class, many seeds:
    corvane selftest --class lost-write --seeds 5000
  What stands in the documents:
    corvane selftest --full --json detection.json

Exit status: 0 passed, 1 a fault that must be found was missed or a clean run alarmed, 2 wrong command line.
'corvane faults' lists the classes.)";

/// A folder for the reports of many thousand runs: in memory where the machine has such a place.
std::string scratchDirectory() {
  std::error_code ignored;
  const std::filesystem::path memory = "/dev/shm";
  return std::filesystem::is_directory(memory, ignored) ? memory.string()
                                                        : std::filesystem::temp_directory_path().string();
}

FaultClass classNamed(const std::string& name) {
  if (const auto what = faultClassNamed(name)) {
    return *what;
  }
  throw UsageError("--class '" + name + "' is not a class of faults; 'corvane faults' lists them" +
                   didYouMean(name, faultClassNames()));
}

CampaignPlan planOf(const SelftestCommandLine::Settings& settings) {
  CampaignPlan plan;
  plan.classes = settings.classes;
  if (settings.classes.empty()) {
    for (const FaultClassInfo& info : faultClasses()) {
      plan.classes.push_back(info.what);
    }
  }
  plan.faultSeeds = settings.seeds.value_or(settings.full ? fullFaultSeeds : quickFaultSeeds);
  plan.cleanSeeds = settings.seeds.value_or(settings.full ? fullCleanSeeds : quickCleanSeeds);
  if (settings.full) {
    plan.cleanCommands = fullCleanCommands;
    plan.leastRuns = settings.seeds ? 0 : fullLeastRuns;
  }
  plan.firstSeed = settings.firstSeed;
  plan.jobs = settings.jobs != 0 ? settings.jobs : std::max(1U, std::thread::hardware_concurrency());
  plan.scratchDirectory = scratchDirectory();
  return plan;
}

}  // namespace

SelftestCommandLine::SelftestCommandLine(CLI::App& selftest) {
  selftest.add_flag("--quick", quick_, "A few seeds of everything, below two minutes. The default.")
      ->disable_flag_override()
      ->group(selftestGroup);
  selftest.add_flag("--full", full_, "So many seeds that the figures mean something.")
      ->disable_flag_override()
      ->group(selftestGroup);
  const auto add = [&selftest](const char* flag, const char* value, std::vector<std::string>& to, const char* help) {
    addCollected(selftest, selftestGroup, flag, value, help, to);
  };
  add("--class", "NAME", classes_, "Injects this class of faults only. Give it again for further ones.");
  add("--seeds", "N", seeds_, "Runs of each class and workload, and clean runs of each workload.");
  add("--first-seed", "N", firstSeed_, "The first seed. Default: 1.");
  add("--jobs", "N", jobs_, "Runs at once; has no influence on results. Default: one a processor.");
  add("--json", "FILE", json_, "The result for programs; replaced when it is there.");
  selftest.footer(examples);
}

SelftestCommandLine::Settings SelftestCommandLine::settings() const {
  if (quick_ && full_) {
    throw UsageError("--quick and --full exclude each other; give one");
  }
  Settings settings;
  settings.full = full_;
  for (const std::string& name : classes_) {
    settings.classes.push_back(classNamed(name));
  }
  if (const std::string* text = onlyValue("--seeds", seeds_)) {
    settings.seeds = parseCount("--seeds", *text, 1);
    if (*settings.seeds > mostSeeds) {
      throw UsageError("--seeds '" + *text + "' is too many; give at most " + std::to_string(mostSeeds));
    }
  }
  if (const std::string* text = onlyValue("--first-seed", firstSeed_)) {
    settings.firstSeed = parseNumber("--first-seed", *text);
  }
  if (const std::string* text = onlyValue("--jobs", jobs_)) {
    settings.jobs = parseCount32("--jobs", *text, 1, mostJobs);
  }
  if (const std::string* text = onlyValue("--json", json_)) {
    checkNotEmpty("--json", *text, "a file");
    settings.jsonPath = *text;
  }
  return settings;
}

int runSelftest(const SelftestCommandLine::Settings& settings, const std::string& pluginPath) {
  if (!settings.jsonPath.empty()) {
    checkReplaceable("--json", settings.jsonPath);
  }
  const AgentPlugin plugin(pluginPath);
  CampaignResult result;
  {
    const QuietStreams quiet;
    Console out = Console::of(quiet.terminal());
    Campaign campaign(plugin.table(), planOf(settings));
    out.write(classTableHeading());
    bool cleanBegun = false;
    result = campaign.run([&out](const ClassResult& one) { out.write(classTableRow(one)); },
                          [&out, &cleanBegun](const CleanResult& one) {
                            if (!std::exchange(cleanBegun, true)) {
                              out.write("\n" + cleanTableHeading());
                            }
                            out.write(cleanTableRow(one));
                          });
    out.write(campaignSummary(result));
  }
  if (!settings.jsonPath.empty()) {
    replaceFile("--json", settings.jsonPath, campaignJson(result));
  }
  return result.passed() ? exit_status::clean : exit_status::dataFailure;
}

}  // namespace corvane::host
