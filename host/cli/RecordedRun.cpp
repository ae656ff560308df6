#include "host/cli/RecordedRun.h"

#include <nlohmann/json.hpp>

#include "host/cli/InputFile.h"
#include "host/cli/TestJson.h"
#include "host/cli/UsageError.h"

namespace corvane::host {
namespace {

using Json = nlohmann::ordered_json;

constexpr size_t longestDocument = size_t{256} << 20;
constexpr const char* remedy = "name the JSON document of a run, such as corvane-out/result.json";

Json parsed(const std::string& path) {
  const std::string text = readInputFile("document", path, longestDocument, remedy);
  Json document = Json::parse(text, nullptr, false);
  if (document.is_discarded()) {
    throw UsageError("document '" + path + "' is no JSON; " + remedy);
  }
  return document;
}

void checkFormat(const Json& document, const std::string& path) {
  const bool known = document.is_object() && document.contains("format") && document.contains("test");
  if (!known) {
    throw UsageError("document '" + path + "' does not say which test was run; " + remedy);
  }
  if (document["format"] != runDocumentFormat) {
    throw UsageError("document '" + path + "' is of format " + document["format"].dump() + ", and this program reads " +
                     std::to_string(runDocumentFormat) + "; take the program that wrote it");
  }
}

uint64_t numberOr0(const Json& object, const char* key) {
  const auto found = object.find(key);
  return found == object.end() || found->is_null() ? 0 : found->get<uint64_t>();
}

RecordedFinding findingOf(const Json& object) {
  RecordedFinding finding;
  finding.drive = object.at("drive").get<std::string>();
  finding.driveIndex = object.at("driveIndex").get<uint32_t>();
  finding.agentStatus = object.at("agentStatus").get<int32_t>();
  if (const Json& lba = object.at("lba"); !lba.is_null()) {
    finding.lba = lba.get<uint64_t>();
  }
  finding.commandNumber = numberOr0(object, "commandNumber");
  finding.step = numberOr0(object, "step");
  return finding;
}

}  // namespace

RecordedRun readRecordedRun(const std::string& path) {
  const Json json = parsed(path);
  checkFormat(json, path);
  RecordedRun document;
  document.test = testFromJson(json["test"], path);
  try {
    document.version = json.at("version").get<std::string>();
    for (const Json& finding : json.at("findings")) {
      document.findings.push_back(findingOf(finding));
    }
  } catch (const Json::exception&) {
    throw UsageError("document '" + path + "' is not as a run leaves it; name one that nobody has changed");
  }
  return document;
}

}  // namespace corvane::host
