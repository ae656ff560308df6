#include "host/cli/SelftestText.h"

#include <array>
#include <cstdio>
#include <nlohmann/json.hpp>

#include "host/base/TextFormat.h"
#include "host/cli/RunSettings.h"
#include "host/cli/Version.h"

namespace corvane::host {
namespace {

using Json = nlohmann::ordered_json;

constexpr std::array<Verdict, verdicts> everyVerdict{Verdict::named,  Verdict::found,  Verdict::explained,
                                                     Verdict::missed, Verdict::masked, Verdict::falseAlarm,
                                                     Verdict::idle,   Verdict::broken};

uint64_t countOf(const CellResult& cell, Verdict verdict) { return cell.count[static_cast<size_t>(verdict)]; }

std::string commandOf(const CampaignExample& example) {
  RunSettings settings;
  settings.test = example.test;
  return shellLine(repeatCommand(settings));
}

void addExamples(std::string& text, const std::vector<CampaignExample>& examples) {
  for (const CampaignExample& example : examples) {
    text += "  " + printable(example.text) + "\n    " + commandOf(example) + "\n";
  }
}

Json examplesJson(const std::vector<CampaignExample>& examples) {
  Json list = Json::array();
  for (const CampaignExample& example : examples) {
    list.push_back({{"text", example.text}, {"command", commandOf(example)}});
  }
  return list;
}

Json cellJson(const CellResult& cell) {
  Json object = Json::object();
  object["workload"] = cell.workload;
  object["runs"] = cell.runs;
  Json& verdicts = object["verdicts"] = Json::object();
  for (const Verdict verdict : everyVerdict) {
    verdicts[verdictName(verdict)] = countOf(cell, verdict);
  }
  object["reasons"] = cell.reasons;
  object["explanations"] = {{"kinds", cell.kinds},
                            {"suspected", cell.suspected},
                            {"suspectedFirst", cell.suspectedFirst},
                            {"contradicted", cell.contradicted}};
  object["examples"] = examplesJson(cell.examples);
  return object;
}

Json classJson(const ClassResult& result) {
  Json object = Json::object();
  object["class"] = faultClassInfo(result.what).name;
  object["visible"] = result.visible();
  Json& verdicts = object["verdicts"] = Json::object();
  for (const Verdict verdict : everyVerdict) {
    verdicts[verdictName(verdict)] = result.total(verdict);
  }
  object["inexpressible"] = result.inexpressible;
  Json& cells = object["workloads"] = Json::array();
  for (const CellResult& cell : result.cells) {
    cells.push_back(cellJson(cell));
  }
  return object;
}

}  // namespace

std::string classTableHeading() {
  return "| class                | visible | found and named | found | missed, explained | missed | masked | "
         "false alarm | no opportunity |\n"
         "|----------------------|--------:|----------------:|------:|------------------:|-------:|-------:|"
         "------------:|---------------:|\n";
}

std::string classTableRow(const ClassResult& result) {
  std::array<char, 200> row{};
  std::snprintf(row.data(), row.size(),
                "| %-20s | %7llu | %15llu | %5llu | %17llu | %6llu | %6llu | %11llu | %14llu |\n",
                faultClassInfo(result.what).name, static_cast<unsigned long long>(result.visible()),
                static_cast<unsigned long long>(result.total(Verdict::named)),
                static_cast<unsigned long long>(result.total(Verdict::found)),
                static_cast<unsigned long long>(result.total(Verdict::explained)),
                static_cast<unsigned long long>(result.total(Verdict::missed)),
                static_cast<unsigned long long>(result.total(Verdict::masked)),
                static_cast<unsigned long long>(result.total(Verdict::falseAlarm)),
                static_cast<unsigned long long>(result.total(Verdict::idle)));
  return row.data();
}

std::string cleanTableHeading() {
  return "| clean runs           |   runs |    commands | blocks compared | alarms |\n"
         "|----------------------|-------:|------------:|----------------:|-------:|\n";
}

std::string cleanTableRow(const CleanResult& result) {
  std::array<char, 160> row{};
  std::snprintf(row.data(), row.size(), "| %-20s | %6llu | %11llu | %15llu | %6llu |\n", result.workload.c_str(),
                static_cast<unsigned long long>(result.runs), static_cast<unsigned long long>(result.commands),
                static_cast<unsigned long long>(result.blocksCompared), static_cast<unsigned long long>(result.alarms));
  return row.data();
}

std::string explanationTable(const CampaignResult& result) {
  std::string text =
      "| class                |  found | named by the explanation | named first | contradicted | explained as |\n"
      "|----------------------|-------:|-------------------------:|------------:|-------------:|--------------|\n";
  for (const ClassResult& one : result.classes) {
    std::array<char, 200> row{};
    std::snprintf(row.data(), row.size(), "| %-20s | %6llu | %24llu | %11llu | %12llu | ",
                  faultClassInfo(one.what).name,
                  static_cast<unsigned long long>(one.total(Verdict::named) + one.total(Verdict::found)),
                  static_cast<unsigned long long>(one.sum(&CellResult::suspected)),
                  static_cast<unsigned long long>(one.sum(&CellResult::suspectedFirst)),
                  static_cast<unsigned long long>(one.sum(&CellResult::contradicted)));
    text += row.data();
    std::string kinds;
    for (const auto& [kind, count] : one.kinds()) {
      kinds += (kinds.empty() ? "" : ", ") + kind + " " + std::to_string(count);
    }
    text += kinds + " |\n";
  }
  return text;
}

std::string campaignSummary(const CampaignResult& result) {
  std::string text = "\nHow the found ones were explained:\n\n" + explanationTable(result);
  text += "\nWhy injections were missed or masked:\n";
  for (const ClassResult& one : result.classes) {
    for (const auto& [reason, count] : one.reasons()) {
      text += "  " + std::string(faultClassInfo(one.what).name) + ": " + groupedNumber(count) + " " +
              (reason.empty() ? "without a reason" : reason) + "\n";
    }
  }
  text += "\nWhat must not be:\n";
  const size_t before = text.size();
  for (const ClassResult& one : result.classes) {
    for (const CellResult& cell : one.cells) {
      addExamples(text, cell.examples);
    }
  }
  for (const CleanResult& one : result.clean) {
    addExamples(text, one.examples);
  }
  const uint64_t canaryMisses = countOf(result.canary, Verdict::missed);
  if (canaryMisses == 0) {
    text += "  the canary, whose reads are never compared, was not missed: the campaign cannot fail\n";
  }
  if (text.size() == before) {
    text += "  nothing\n";
  }
  text += "\nCanary: " + groupedNumber(canaryMisses) + " of " + groupedNumber(result.canary.runs) +
          " lost writes were missed with the compare switched off, as they must be.\n";
  text += "Clean: " + groupedNumber(result.blocksCompared()) + " blocks compared.\n";
  text += std::string("Result: ") + (result.passed() ? "passed" : "FAILED (exit status 1)") + "\n";
  return text;
}

std::string campaignJson(const CampaignResult& result) {
  Json document = Json::object();
  document["version"] = programVersion();
  document["passed"] = result.passed();
  Json& classes = document["classes"] = Json::array();
  for (const ClassResult& one : result.classes) {
    classes.push_back(classJson(one));
  }
  Json& clean = document["clean"] = Json::array();
  for (const CleanResult& one : result.clean) {
    clean.push_back({{"workload", one.workload},
                     {"runs", one.runs},
                     {"commands", one.commands},
                     {"blocksCompared", one.blocksCompared},
                     {"alarms", one.alarms},
                     {"examples", examplesJson(one.examples)}});
  }
  document["canary"] = cellJson(result.canary);
  constexpr int indent = 2;
  return document.dump(indent, ' ', false, Json::error_handler_t::replace) + "\n";
}

}  // namespace corvane::host
