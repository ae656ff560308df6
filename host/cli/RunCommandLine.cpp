#include "host/cli/RunCommandLine.h"

#include <CLI/CLI.hpp>

#include "host/cli/FlagValues.h"
#include "host/cli/TestFile.h"
#include "host/cli/TestKey.h"
#include "host/cli/UsageError.h"

namespace corvane::host {
namespace {

constexpr const char* examples = R"(Examples:
  A simulated drive of 1 GiB, ten seconds:
    corvane run --drive sim:1g
  A file of 256 MiB and a simulated drive, side by side:
    corvane run --drive file:/tmp/drive.img,size=256m --drive sim:1g --time 1m
  Three writes to one trim, reads and verifies, repeatable:
    corvane run --drive sim:1g --commands 100000 --seed 1 --commands-of write=3,trim,read,verify
  Atomic writes with power cuts:
    corvane run --drive sim:1g --commands-of atomic,read --power-toggle nosync --set "PowerToggle Freq=1"
  The test of a file, but shorter, and the file that a command line amounts to:
    corvane run soak.toml --time 10m
    corvane run --drive sim:1g --queue-depth 64 --dry-run

A test file is TOML: every flag is a key of the same name there, but the options of the agent stand in the
table [options] and what gates steps in the table [step]. Flags overrule the file. Relative paths in it start
from the working folder. --overwrite and --dry-run are flags alone.

Exit status: 0 clean, 1 data failure, 2 wrong command line or configuration, 3 drive or transport failed,
4 internal error. SIGINT or SIGTERM ends a test early, with its summary; a second one kills it.
'corvane drives' lists the kinds of drives, 'corvane options' the agent's options.)";

std::string flagOf(const TestKey& key) { return std::string("--") + key.name; }

void addSwitch(CLI::App& run, const char* group, const std::string& flag, const std::string& help, bool& on) {
  run.add_flag(flag, on, help)->disable_flag_override()->group(group);
}

}  // namespace

RunCommandLine::RunCommandLine(CLI::App& run) {
  run.add_option("FILE", files_, "A test file; its keys are the flags below")
      ->type_name("")
      ->expected(1)
      ->allow_extra_args(false);
  for (const TestKey& key : testKeys()) {
    if (key.form == TestKeyForm::onOff) {
      addSwitch(run, key.group, flagOf(key), key.help, on_[key.name]);
    } else {
      addCollected(run, key.group, flagOf(key).c_str(), key.value, key.help, given_[key.name]);
    }
  }
  addOverwrite(run, testKeys().front().group, overwrite_);
  addSwitch(run, testKeys().front().group, "--dry-run",
            "Prints the test as a test file with everything that was chosen, and touches nothing: no drive is opened "
            "and no file or folder made.",
            dryRun_);
  run.footer(examples);
}

GivenTest RunCommandLine::flags() const {
  GivenTest flags;
  for (const TestKey& key : testKeys()) {
    if (key.form == TestKeyForm::onOff) {
      if (on_.at(key.name)) {
        flags.give(key, onText, flagOf(key));
      }
      continue;
    }
    const std::vector<std::string>& values = given_.at(key.name);
    if (key.form == TestKeyForm::once) {
      onlyValue(flagOf(key), values);  // refuses a second one
    }
    for (const std::string& value : values) {
      flags.give(key, value, flagOf(key));
    }
  }
  return flags;
}

RunSettings RunCommandLine::settings() const {
  GivenTest given;
  if (!files_.empty()) {
    given = readTestFile(files_.front());
  }
  given.overruleBy(flags());
  if (!files_.empty() && given.of("drive").empty()) {
    throw UsageError(files_.front() + ": drive is missing; name one, as in drive = \"sim:1g\", or give --drive");
  }
  RunSettings settings = given.settings();
  settings.test.overwriting = overwrite_ ? Overwriting::ofAnything : Overwriting::ofEmptyDrives;
  return settings;
}

}  // namespace corvane::host
