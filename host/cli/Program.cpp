#include "host/cli/Program.h"

#include <unistd.h>

#include <CLI/CLI.hpp>
#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <memory>
#include <new>
#include <string>
#include <vector>

#include "host/base/NearestName.h"
#include "host/base/TextFormat.h"
#include "host/cli/Console.h"
#include "host/cli/DrivesCommand.h"
#include "host/cli/ExitStatus.h"
#include "host/cli/FaultsCommand.h"
#include "host/cli/HelpFormat.h"
#include "host/cli/OptionsCommand.h"
#include "host/cli/PluginPath.h"
#include "host/cli/ReplayCommand.h"
#include "host/cli/ReportCommand.h"
#include "host/cli/RunCommand.h"
#include "host/cli/RunCommandLine.h"
#include "host/cli/SelftestCommand.h"
#include "host/cli/UsageCommand.h"
#include "host/cli/UsageError.h"
#include "host/cli/Version.h"
#include "host/drive/DriveError.h"
#include "host/run/ConfigurationError.h"

namespace corvane::host {
namespace {

constexpr const char* introduction =
    "Corvane tests whether a drive keeps data: it writes, reads back at a time that the drive does not expect, and "
    "compares.";

constexpr const char* examples = R"(Examples:
  corvane run --drive sim:1g
  corvane run --drive file:/tmp/drive.img,size=256m --time 1m --commands-of write,read,verify
  corvane run examples/quick.toml
  corvane replay corvane-out/result.json
  corvane run --help
  corvane drives file:/tmp/drive.img

Exit status: 0 clean, 1 data failure, 2 wrong command line or configuration, 3 drive or transport failed,
4 internal error.)";

constexpr const char* generalGroup = "General";

/// The whole command line: what is known, and what was given.
class Program {
 public:
  Program() : app_(introduction) {
    app_.name("corvane");
    app_.formatter(std::make_shared<HelpFormat>());
    app_.set_version_flag("--version", std::string("corvane ") + programVersion(), "Prints the program's version");
    app_.set_help_flag("-h,--help", "Prints this help; 'corvane COMMAND --help' that of a command");
    app_.get_version_ptr()->disable_flag_override()->group(generalGroup);
    app_.get_help_ptr()->disable_flag_override()->group(generalGroup);
    app_.footer(examples);
    run_ = command("run", "Tests drives");
    runLine_ = std::make_unique<RunCommandLine>(*run_);
    replay_ = command("replay", "Runs a test again up to the moment of a finding");
    replayLine_ = std::make_unique<ReplayCommandLine>(*replay_);
    selftest_ = command("selftest", "Tries out which faults of a drive are found");
    selftestLine_ = std::make_unique<SelftestCommandLine>(*selftest_);
    report_ = command("report", "Shows what a run found, as a page or as text");
    reportLine_ = std::make_unique<ReportCommandLine>(*report_);
    options_ = command("options", "Lists the agent's options, which 'corvane run --set' sets");
    usage_ = command("usage", "Prints the agent's own usage text");
    for (CLI::App* ofAgent : {options_, usage_, selftest_}) {
      ofAgent->add_option("--plugin", pluginFile_, "The agent's library. Default: the one that comes with the program.")
          ->type_name("FILE")
          ->group(generalGroup);
    }
    faults_ = command("faults", "Lists what a drive can be made to do wrong");
    drives_ = command("drives", "Tells how drives are addressed, or what one drive is");
    options_->footer("Example:\n  corvane run --drive sim:1g --set \"Slide Reads=true\" --set \"Max Queue Size=8192\"");
    usage_->footer("It tells test authors how the agent wants to be used.");
    drives_->footer(
        "Examples:\n  corvane drives\n  corvane drives sim:1g,block=4096\n  corvane drives file:/tmp/drive.img");
    drives_->add_option("ADDRESS", driveAddress_, "Opens this drive and describes it")->type_name("");
    // What is left over is judged by us, with the nearest name.
    app_.allow_extras();
  }

  const CLI::App& app() const { return app_; }

  int run(int argc, const char* const* argv) {
    Console out = Console::of(stdout);
    try {
      app_.parse(argc, argv);
    } catch (const CLI::CallForVersion& version) {
      out.line(version.what());
      return exit_status::clean;
    } catch (const CLI::Success&) {
      out.write(app_.help());
      return exit_status::clean;
    } catch (const CLI::ParseError& error) {
      throw UsageError(refusalOf(error));
    }
    return follow(out);
  }

 private:
  CLI::App* command(const char* name, const char* help) {
    CLI::App* added = app_.add_subcommand(name, help);
    added->group("Commands");
    added->set_help_flag("-h,--help", "Prints this help")->disable_flag_override()->group(generalGroup);
    added->allow_extras();
    return added;
  }

  int follow(Console& out) {
    const std::vector<CLI::App*> commands = app_.get_subcommands();
    checkLeftOver(app_, "corvane");
    if (commands.empty()) {
      throw UsageError("no command is given; choose of " + commandList() +
                       " ('corvane --help' "
                       "explains "
                       "them)");
    }
    if (commands.size() > 1) {
      throw UsageError("'" + commands[1]->get_name() + "' follows the command '" + commands[0]->get_name() +
                       "'; give one command");
    }
    const CLI::App* chosen = commands.front();
    checkLeftOver(*chosen, "corvane " + chosen->get_name());
    const std::string plugin = pluginFile_.empty() ? defaultPluginPath() : pluginPathFrom(pluginFile_);
    if (chosen == options_) {
      return showOptions(out, plugin);
    }
    if (chosen == usage_) {
      return showUsage(out, plugin);
    }
    if (chosen == selftest_) {
      return runSelftest(selftestLine_->settings(), plugin);
    }
    if (chosen == replay_) {
      return runReplay(replayLine_->request(), out);
    }
    if (chosen == report_) {
      return showReport(reportLine_->settings(), out);
    }
    if (chosen == faults_) {
      return showFaultClasses(out);
    }
    if (chosen == drives_) {
      return drives_->count("ADDRESS") == 0 ? showDriveAddresses(out) : showDrive(out, driveAddress_);
    }
    const RunSettings settings = runLine_->settings();
    return runLine_->dryRun() ? showResolvedTest(settings, out) : runTest(settings, out);
  }

  std::vector<std::string> commandNames() const {
    std::vector<std::string> names;
    for (const CLI::App* known : app_.get_subcommands(nullptr)) {
      names.push_back(known->get_name());
    }
    return names;
  }

  std::string commandList() const {
    std::string list;
    for (const std::string& name : commandNames()) {
      list += (list.empty() ? "" : ", ") + name;
    }
    return list;
  }

  /// Refuses the first word that nobody took.
  void checkLeftOver(const CLI::App& command, const std::string& name) const {
    const std::vector<std::string> words = command.remaining();
    if (words.empty()) {
      return;
    }
    const std::string& word = words.front();
    const std::string help = "; '" + name + " --help' lists them";
    if (word.starts_with('-') && word != "-" && word != "--") {
      const std::string flag = word.substr(0, word.find('='));
      throw UsageError("'" + flag + "' is not a flag of '" + name + "'" + help + didYouMean(flag, flagsOf(command)));
    }
    if (&command == &app_) {
      throw UsageError("'" + word + "' is not a command; choose of " + commandList() +
                       didYouMean(word, commandNames()));
    }
    throw UsageError("'" + word + "' is one word too many for '" + name + "'; '" + name +
                     " --help' shows what it takes");
  }

  static std::vector<std::string> flagsOf(const CLI::App& command) {
    std::vector<std::string> flags;
    for (const CLI::Option* option : command.get_options()) {
      for (const std::string& name : option->get_lnames()) {
        flags.push_back("--" + name);
      }
    }
    return flags;
  }

  /// One line of ours for an error of the parser.
  std::string refusalOf(const CLI::ParseError& error) const {
    const std::string text = error.what();
    const std::vector<CLI::App*> commands = app_.get_subcommands();
    const std::string help = "'corvane" + (commands.empty() ? "" : " " + commands.front()->get_name()) + " --help'";
    std::string flag = text.substr(0, text.find_first_of(": "));
    if (dynamic_cast<const CLI::ArgumentMismatch*>(&error) == nullptr) {
      return text + "; see " + help;
    }
    if (text.find("flag override") != std::string::npos) {
      flag.insert(0, flag.starts_with("--") ? "" : "--");
      return flag + " takes no value; give it alone";
    }
    return flag + " needs a value, once; " + help + " shows which";
  }

  CLI::App app_;
  CLI::App* run_ = nullptr;
  CLI::App* replay_ = nullptr;
  CLI::App* options_ = nullptr;
  CLI::App* usage_ = nullptr;
  CLI::App* selftest_ = nullptr;
  CLI::App* report_ = nullptr;
  CLI::App* faults_ = nullptr;
  CLI::App* drives_ = nullptr;
  std::unique_ptr<RunCommandLine> runLine_;
  std::unique_ptr<ReplayCommandLine> replayLine_;
  std::unique_ptr<SelftestCommandLine> selftestLine_;
  std::unique_ptr<ReportCommandLine> reportLine_;
  std::string pluginFile_;
  std::string driveAddress_;
};

constexpr const char* outOfMemory =
    "out of memory; free some, or lower the queue depth, the transfer length, \"Bucket Count\" or \"Max Queue Size\"";

std::atomic<bool> memoryRanOut{false};

[[noreturn]] void noteShortage() {
  memoryRanOut = true;
  throw std::bad_alloc();
}

/// Libraries that may not throw end the program where memory runs out; it says so all the same, and with its status.
[[noreturn]] void endWithoutMemory() {
  const std::exception_ptr error = std::current_exception();
  // A function that may not throw and was compiled into its caller ends the program before anybody has caught.
  bool forWantOfIt = error == nullptr && memoryRanOut;
  try {
    if (error != nullptr) {
      std::rethrow_exception(error);
    }
  } catch (const std::bad_alloc&) {
    forWantOfIt = true;
  } catch (...) {
  }
  if (!forWantOfIt) {
    std::abort();
  }
  std::fflush(stdout);
  std::fprintf(stderr, "corvane: %s\n", outOfMemory);
  _exit(exit_status::internal);
}

int failed(int status, const std::string& text) {
  std::fprintf(stderr, "corvane: %s\n", printable(text).c_str());
  return status;
}

}  // namespace

void describeProgram(const std::function<void(const CLI::App&)>& reader) { reader(Program().app()); }

int runProgram(int argc, const char* const* argv) noexcept {
  std::set_new_handler(noteShortage);
  std::set_terminate(endWithoutMemory);
  try {
    return Program().run(argc, argv);
  } catch (const UsageError& error) {
    return failed(exit_status::usage, error.what());
  } catch (const ConfigurationError& error) {
    return failed(exit_status::usage, error.what());
  } catch (const DriveAddressError& error) {
    return failed(exit_status::usage, error.what());
  } catch (const DriveError& error) {
    return failed(exit_status::drive, error.what());
  } catch (const std::bad_alloc&) {
    std::fprintf(stderr, "corvane: %s\n", outOfMemory);
    return exit_status::internal;
  } catch (const std::exception& error) {
    return failed(exit_status::internal, std::string("internal error: ") + error.what());
  }
}

}  // namespace corvane::host
