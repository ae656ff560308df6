#include "host/cli/RunDocuments.h"

#include <cstdio>
#include <functional>
#include <new>

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

/// Writes a document of a test that has ended. Whatever stands in its way must not take the verdict away.
bool written(const std::string& name, const std::string& path, const std::function<std::string()>& text) {
  try {
    return replaced(name, path, text(), true);
  } catch (const std::bad_alloc&) {
    std::fprintf(stderr, "corvane: %s '%s' cannot be written: out of memory\n", name.c_str(), path.c_str());
    return false;
  } catch (const std::exception& error) {
    std::fprintf(stderr, "corvane: %s '%s' cannot be written: %s\n", name.c_str(), printable(path).c_str(),
                 error.what());
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
  const bool json = written(nameOfJson(settings_), settings_.jsonPath,
                            [&] { return runJson(settings_, drives, warnings, result, explanations); });
  return (settings_.junitPath.empty() ||
          written(nameOf(settings_, "junit"), settings_.junitPath, [&] { return runJunit(settings_, result); })) &&
         json;
}

}  // namespace corvane::host
