#pragma once

#include <CLI/CLI.hpp>
#include <string>
#include <string_view>

namespace corvane::host {

/// How `--help` looks: flags on the left, wrapped sentences with their defaults on the right.
class HelpFormat final : public CLI::Formatter {
 public:
  HelpFormat();

  /// A flag's description broken into lines that fit beside the flags.
  static std::string described(std::string_view text);

  std::string make_option_opts(const CLI::Option* option) const override;
  std::string make_description(const CLI::App* app) const override;
  std::string make_help(const CLI::App* app, std::string name, CLI::AppFormatMode mode) const override;
  std::string make_usage(const CLI::App* app, std::string name) const override;
};

}  // namespace corvane::host
