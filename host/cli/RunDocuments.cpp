#include "host/cli/RunDocuments.h"

#include <cstdio>

#include "host/base/TextFormat.h"
#include "host/cli/OutputFiles.h"
#include "host/cli/RunJson.h"
#include "host/cli/RunJunit.h"
#include "host/cli/UsageError.h"
#include "host/drive/DriveError.h"
#include "host/run/ConfigurationError.h"

namespace corvane::host {
namespace {

bool replaced(const std::string& name, const std::string& path, const std::string& text, bool complain) {
  try {
    checkReplaceable(name, path);
    replaceFile(name, path, text);
    return true;
  } catch (const UsageError& error) {
    if (complain) {
      std::fprintf(stderr, "corvane: %s\n", printable(error.what()).c_str());
    }
    return false;
  }
}

}  // namespace

RunStatus runStatusOf(const std::exception& error) {
  if (dynamic_cast<const UsageError*>(&error) != nullptr ||
      dynamic_cast<const ConfigurationError*>(&error) != nullptr ||
      dynamic_cast<const DriveAddressError*>(&error) != nullptr) {
    return RunStatus::configuration;
  }
  return dynamic_cast<const DriveError*>(&error) != nullptr ? RunStatus::drive : RunStatus::internal;
}

void RunDocuments::check() const {
  checkReplaceable(nameOfJson(settings_), settings_.jsonPath);
  if (!settings_.junitPath.empty()) {
    checkReplaceable(nameOf(settings_, "junit"), settings_.junitPath);
  }
}

void RunDocuments::begin(const std::vector<std::string>& warnings) {
  replaceFile(nameOfJson(settings_), settings_.jsonPath, unfinishedRunJson(settings_, warnings));
  begun_ = true;
}

void RunDocuments::fail(RunStatus status, std::string_view error) {
  if (settings_.jsonGiven || begun_) {
    replaced(nameOfJson(settings_), settings_.jsonPath, failedRunJson(settings_, status, error), begun_);
  }
  if (!settings_.junitPath.empty()) {
    replaced(nameOf(settings_, "junit"), settings_.junitPath, failedRunJunit(settings_, status, error), begun_);
  }
}

bool RunDocuments::finish(const std::vector<DriveIntroduction>& drives, const std::vector<std::string>& warnings,
                          const RunResult& result, const std::vector<std::optional<Explanation>>& explanations) {
  const std::string document = runJson(settings_, drives, warnings, result, explanations);
  const bool json = replaced(nameOfJson(settings_), settings_.jsonPath, document, true);
  return (settings_.junitPath.empty() ||
          replaced(nameOf(settings_, "junit"), settings_.junitPath, runJunit(settings_, result), true)) &&
         json;
}

}  // namespace corvane::host
