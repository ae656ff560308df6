#include "host/cli/RecordedRun.h"

#include <nlohmann/json.hpp>

#include "host/base/JsonNesting.h"
#include "host/cli/InputFile.h"
#include "host/cli/JsonFields.h"
#include "host/cli/TestJson.h"
#include "host/cli/UsageError.h"

namespace corvane::host {
namespace {

using Json = nlohmann::ordered_json;

constexpr size_t longestDocument = size_t{256} << 20;
constexpr const char* remedy = "name the JSON document of a run, such as corvane-out/result.json";

Json parsed(std::string_view text, const std::string& path) {
  if (nestsTooDeep(text)) {
    throw UsageError("document '" + path + "' nests values more than " + std::to_string(mostJsonNesting) +
                     " deep, as no run does; " + remedy);
  }
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

uint64_t numberOr0(const Json& object, JsonFields& fields, const char* key) {
  return object.contains(key) ? fields.numberOrNull(key).value_or(0) : 0;
}

RecordedFinding findingOf(const Json& object, JsonFields& fields) {
  RecordedFinding finding;
  finding.drive = fields.text("drive");
  finding.driveIndex = fields.number32("driveIndex");
  finding.agentStatus = fields.signedNumber32("agentStatus");
  finding.lba = fields.numberOrNull("lba");
  finding.commandNumber = numberOr0(object, fields, "commandNumber");
  finding.step = numberOr0(object, fields, "step");
  return finding;
}

[[noreturn]] void refuseChanged(const std::string& path) {
  throw UsageError("document '" + path + "' is not as a run leaves it; name one that nobody has changed");
}

}  // namespace

RecordedRun readRecordedRun(const std::string& path) {
  return recordedRunFrom(readInputFile("document", path, longestDocument, remedy), path);
}

RecordedRun recordedRunFrom(std::string_view text, const std::string& path) {
  const Json json = parsed(text, path);
  checkFormat(json, path);
  RecordedRun document;
  document.test = testFromJson(json["test"], path);
  JsonFields fields(json);
  document.version = fields.text("version");
  for (const Json& finding : fields.part("findings")) {
    JsonFields itsFields(finding);
    document.findings.push_back(findingOf(finding, itsFields));
    fields.takeFault("findings", itsFields);
  }
  if (!fields.fault().empty()) {
    refuseChanged(path);
  }
  return document;
}

}  // namespace corvane::host
