#include "host/cli/ManPage.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <string_view>
#include <utility>
#include <vector>

#include "host/cli/ExitStatusText.h"
#include "host/cli/HelpFormat.h"
#include "host/cli/RoffPage.h"
#include "host/cli/RunSettings.h"
#include "host/cli/Version.h"

namespace corvane::host {
namespace {

/// What a footer of `--help` has: sentences, and examples, which are indented.
struct Footer {
  std::string examples;
  std::vector<std::string> sentences;  ///< one a paragraph
};

Footer takenApart(std::string_view text) {
  Footer footer;
  bool fresh = true;
  while (!text.empty()) {
    const size_t end = std::min(text.find('\n'), text.size());
    const std::string line(text.substr(0, end));
    text.remove_prefix(std::min(end + 1, text.size()));
    if (line.starts_with(' ')) {
      footer.examples += line + "\n";
    } else if (!line.empty() && !line.starts_with("Example")) {
      if (std::exchange(fresh, false)) {
        footer.sentences.push_back(line);
      } else {
        footer.sentences.back() += " " + line;
      }
      continue;
    }
    fresh = true;
  }
  return footer;
}

std::string nameOf(const CLI::App& command, const std::string& program) { return program + " " + command.get_name(); }

/// What `--help` shows behind "Usage: ", a line.
std::string usageOf(const CLI::App& app, const std::string& name) {
  const std::string usage = HelpFormat().make_usage(&app, name);
  return usage.substr(usage.find(name));
}

void addOption(RoffPage& page, const CLI::Option& option, bool positional) {
  page.item(option.get_name(positional, !positional), option.get_type_name(), option.get_description());
}

/// The flags of the program or of a command, in the groups of its `--help`.
void addFlags(RoffPage& page, const CLI::App& app) {
  for (const CLI::Option* option : app.get_options([](const CLI::Option* o) { return o->get_positional(); })) {
    addOption(page, *option, true);
  }
  for (const std::string& group : app.get_groups()) {
    const auto ofGroup = [&group](const CLI::Option* o) { return o->get_group() == group && o->nonpositional(); };
    const std::vector<const CLI::Option*> options = app.get_options(ofGroup);
    if (group.empty() || options.empty()) {
      continue;
    }
    page.heading(group);
    for (const CLI::Option* option : options) {
      addOption(page, *option, false);
    }
  }
}

void addCommand(RoffPage& page, const CLI::App& command, const std::string& program) {
  page.subsection(nameOf(command, program));
  page.paragraph(command.get_description() + ".");
  page.paragraph("Usage: " + usageOf(command, nameOf(command, program)));
  addFlags(page, command);
  const Footer footer = takenApart(command.get_footer());
  if (!footer.examples.empty()) {
    page.heading("Examples");
    page.example(footer.examples);
  }
  for (const std::string& sentence : footer.sentences) {
    page.paragraph(sentence);
  }
}

void addDescription(RoffPage& page, const CLI::App& app) {
  page.section("Description");
  page.paragraph(app.get_description());
  page.paragraph(
      "For every block it remembers each content that is still legal: a write in flight, an aborted one, half of an "
      "atomic one, a trim, what a power cut may have left. A block that holds anything else is reported with the "
      "commands that led there and with the bytes, wanted and found.");
  page.paragraph(
      "What a tested drive held is overwritten. What is tested, and with which data, is the work of an agent: a "
      "library that the program loads; one comes with it.");
}

void addExitStatus(RoffPage& page) {
  page.section("Exit status");
  for (const ExitStatusText& one : exitStatusTexts) {
    page.item(std::to_string(one.status), "", std::string(one.name) + "\n" + one.meaning);
  }
  page.paragraph(
      "The first SIGINT or SIGTERM ends a test early, with its summary and its exit status; the second one kills it.");
}

void addFiles(RoffPage& page) {
  const std::string folder = std::string(usualOutputDirectory) + "/";
  page.section("Files");
  page.item(folder, "", "Reports and dumps of a test, in the working folder, unless --output names another one.");
  page.item(folder + usualJsonName, "", "The result for programs, unless --json names another file.");
  page.item("PREFIX/lib/corvane/libcorvane.so", "",
            "The agent that comes with the program, found from the program's own folder; --plugin names another one.");
  page.item("/etc/corvane/NAME.toml", "", "The test that the service corvane@NAME runs.");
  page.item("/var/lib/corvane/NAME/", "", "Reports, dumps and result of the service corvane@NAME.");
}

}  // namespace

std::string manPage(const CLI::App& app) {
  const std::string& program = app.get_name();
  RoffPage page(program, "1", "Corvane " + std::string(programVersion()), "User Commands");
  page.name(program, "test whether a drive keeps data");
  const std::vector<const CLI::App*> commands = app.get_subcommands([](const CLI::App*) { return true; });
  std::string synopsis = usageOf(app, program);
  for (const CLI::App* command : commands) {
    synopsis += usageOf(*command, nameOf(*command, program));
  }
  page.section("Synopsis");
  page.paragraph(synopsis);
  addDescription(page, app);
  page.section("Flags");
  addFlags(page, app);
  page.section("Commands");
  for (const CLI::App* command : commands) {
    addCommand(page, *command, program);
  }
  addExitStatus(page);
  addFiles(page);
  page.section("Examples");
  page.example(takenApart(app.get_footer()).examples);
  page.section("See also");
  page.paragraph("badblocks(8), bash(1), fio(1), systemd.service(5)");
  return page.text();
}

}  // namespace corvane::host
