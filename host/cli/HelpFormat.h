#pragma once

#include <CLI/CLI.hpp>
#include <string>

namespace corvane::host {

/// How `--help` looks: flags on the left, wrapped sentences with their defaults on the right.
class HelpFormat final : public CLI::Formatter {
 public:
  HelpFormat();

  std::string make_option_opts(const CLI::Option* option) const override;
  std::string make_option_desc(const CLI::Option* option) const override;
  std::string make_description(const CLI::App* app) const override;
  std::string make_help(const CLI::App* app, std::string name, CLI::AppFormatMode mode) const override;
  std::string make_usage(const CLI::App* app, std::string name) const override;
};

}  // namespace corvane::host
