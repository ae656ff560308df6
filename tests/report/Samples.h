#pragma once

#include <nlohmann/json.hpp>
#include <string>

#include "host/report/RunReport.h"
#include "tests/support/TempFolder.h"

namespace corvane::host::testing {

using Json = nlohmann::ordered_json;

inline std::string samplePath(const std::string& name) { return std::string(CORVANE_REPORT_SAMPLES) + "/" + name; }

inline std::string sampleText(const std::string& name) { return tests::readFile(samplePath(name)); }

inline Json sampleJson(const std::string& name) { return Json::parse(sampleText(name)); }

inline report::RunReport sampleReport(const std::string& name) {
  return report::readRun(report::RunFolder(samplePath(name)));
}

}  // namespace corvane::host::testing
