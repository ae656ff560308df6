#include "host/explain/LegalOutcomes.h"

#include <charconv>
#include <sstream>
#include <string>

namespace corvane::host {
namespace {

constexpr std::string_view title = "Context History for lba 0x";

/// The lines below the title of an LBA's table.
std::string tableOf(std::string_view history, uint64_t lba) {
  std::ostringstream wanted;
  wanted << title << std::hex << lba << ":";
  size_t at = history.find(wanted.str());
  if (at == std::string_view::npos) {
    at = history.find(title);
  }
  if (at == std::string_view::npos) {
    return {};
  }
  const std::string_view table = history.substr(at);
  const size_t next = table.find(title, title.size());
  return std::string(table.substr(table.find('\n') + 1, next - table.find('\n') - 1));
}

std::optional<uint32_t> bucketOf(const std::string& text) {
  uint32_t bucket = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), bucket, 16);
  return error == std::errc() && end == text.data() + text.size() ? std::optional(bucket) : std::nullopt;
}

}  // namespace

std::vector<LegalOutcome> legalOutcomesIn(std::string_view history, uint64_t lba) {
  std::vector<LegalOutcome> outcomes;
  std::istringstream lines(tableOf(history, lba));
  std::string line;
  bool invalidated = false;
  while (std::getline(lines, line)) {
    std::istringstream words(line);
    std::string type;
    std::string blockType;
    std::string number;
    uint64_t id = 0;
    if (!(words >> type >> id >> blockType >> number)) {
      continue;  // headings
    }
    if (type == "?") {
      invalidated = true;
      continue;
    }
    LegalOutcome outcome;
    outcome.commandId = id == 0 ? std::nullopt : std::optional(id);
    outcome.bucket = bucketOf(number);
    const std::string who = " with command id " + std::to_string(id);
    if (type == "none" || type == "invalidate" || (number == "INVALID" && type != "hash")) {
      outcome.text = "anything: the content is not known";
    } else if (type == "hash") {
      outcome.text = "what the read" + who + " had returned";
    } else if (number == "ZERO") {
      outcome.text = "zeros, by the trim" + who;
    } else {
      outcome.text = "the data of the " + std::string(type == "atomic" ? "atomic write" : "write") + who;
    }
    if (invalidated) {
      outcome.text = "anything but " + outcome.text;
    }
    outcomes.push_back(std::move(outcome));
    if (blockType != "atomic") {
      break;
    }
  }
  return outcomes;
}

}  // namespace corvane::host
