#include "host/cli/FlagValues.h"

#include "host/cli/UsageError.h"

namespace corvane::host {

void addCollected(CLI::App& app, const char* group, const char* flag, const char* valueName, std::string_view help,
                  std::vector<std::string>& values) {
  app.add_option(flag, values, std::string(help))
      ->allow_extra_args(false)
      ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll)
      ->type_name(valueName)
      ->group(group);
}

void addOverwrite(CLI::App& app, const char* group, bool& on) {
  app.add_flag(
         "--overwrite", on,
         "Tests a drive although it is in use or holds a file system, a partition table or the like, all of which "
         "is destroyed. The disk of the running system stays refused. No test file can ask for it.")
      ->disable_flag_override()
      ->group(group);
}

const std::string* onlyValue(std::string_view flag, const std::vector<std::string>& values) {
  if (values.size() > 1) {
    throw UsageError(std::string(flag) + " is given twice, as '" + values[0] + "' and '" + values[1] +
                     "'; give it once");
  }
  return values.empty() ? nullptr : &values.front();
}

void checkNotEmpty(std::string_view flag, const std::string& text, std::string_view what) {
  if (text.empty()) {
    throw UsageError(std::string(flag) + " '' is empty; name " + std::string(what));
  }
}

}  // namespace corvane::host
