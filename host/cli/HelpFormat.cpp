#include "host/cli/HelpFormat.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <string_view>
#include <utility>

#include "host/base/TextFormat.h"

namespace corvane::host {
namespace {

constexpr size_t flagColumns = 28;
constexpr size_t textColumns = 72;

/// A description broken into lines that fit beside the flags.
std::string described(std::string_view text) {
  // A default stays on the line of its word.
  constexpr std::string_view word = "Default: ";
  constexpr char held = '\x1f';
  std::string joined(text);
  for (size_t at = joined.find(word); at != std::string::npos; at = joined.find(word, at + word.size())) {
    joined[at + word.size() - 1] = held;
  }
  std::string lines = wrapText(joined, textColumns, 0);
  std::replace(lines.begin(), lines.end(), held, ' ');
  lines.pop_back();
  return lines;
}

}  // namespace

HelpFormat::HelpFormat() { column_width(flagColumns); }

std::string HelpFormat::make_option_desc(const CLI::Option* option) const {
  return described(option->get_description());
}

std::string HelpFormat::make_option_opts(const CLI::Option* option) const {
  return option->get_type_name().empty() ? std::string() : " " + option->get_type_name();
}

std::string HelpFormat::make_description(const CLI::App* app) const {
  return described(app->get_description()) + "\n\n";
}

std::string HelpFormat::make_help(const CLI::App* app, std::string name, CLI::AppFormatMode mode) const {
  std::string text = Formatter::make_help(app, std::move(name), mode);
  for (size_t at = text.find("\n\n\n"); at != std::string::npos; at = text.find("\n\n\n", at)) {
    text.erase(at, 1);
  }
  return text;
}

std::string HelpFormat::make_usage(const CLI::App* app, std::string name) const {
  std::string usage = "Usage: " + name;
  for (const CLI::Option* option : app->get_options([](const CLI::Option* o) { return o->get_positional(); })) {
    usage += " [" + option->get_name(true) + "]";
  }
  const bool commands = !app->get_subcommands([](const CLI::App*) { return true; }).empty();
  return usage + (commands ? " COMMAND [FLAGS]" : " [FLAGS]") + "\n";
}

}  // namespace corvane::host
