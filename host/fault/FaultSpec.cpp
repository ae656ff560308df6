#include "host/fault/FaultSpec.h"

#include <array>
#include <charconv>
#include <cstdio>
#include <optional>
#include <vector>

#include "host/base/NearestName.h"
#include "host/base/Probability.h"

namespace corvane::host {
namespace {

constexpr std::string_view commandPrefix = "command:";

/// Reads one description and remembers its text for the complaints.
class Reader {
 public:
  explicit Reader(std::string_view text) : text_(text) {}

  FaultSpec read() {
    const size_t colon = text_.find(':');
    spec_.what = readClass(text_.substr(0, colon));
    std::string_view rest = colon == std::string_view::npos ? std::string_view() : text_.substr(colon + 1);
    while (!rest.empty()) {
      const size_t comma = rest.find(',');
      readPair(rest.substr(0, comma));
      rest = comma == std::string_view::npos ? std::string_view() : rest.substr(comma + 1);
    }
    checkWhen();
    return spec_;
  }

 private:
  [[noreturn]] void refuse(const std::string& fault) const {
    throw FaultSpecError("fault '" + std::string(text_) + "': " + fault);
  }

  FaultClass readClass(std::string_view name) const {
    if (const std::optional<FaultClass> what = faultClassNamed(name)) {
      return *what;
    }
    refuse("'" + std::string(name) + "' is not a class of faults; 'corvane faults' lists them" +
           didYouMean(name, faultClassNames()));
  }

  void readPair(std::string_view pair) {
    const size_t equals = pair.find('=');
    const std::string_view key = pair.substr(0, equals);
    if (equals == std::string_view::npos) {
      refuse("'" + std::string(pair) + "' is not of the form key=value");
    }
    const std::string_view value = pair.substr(equals + 1);
    if (key == "rate") {
      readRate(value);
    } else if (key == "at") {
      readAt(value);
    } else if (key == "most") {
      spec_.most = number(key, value, 1);
      mostGiven_ = true;
    } else if (key == "drive") {
      spec_.drive = static_cast<uint32_t>(number(key, value, 1));
    } else {
      refuse("'" + std::string(key) + "' is not a key; there are rate, at, most and drive" +
             didYouMean(key, {"rate", "at", "most", "drive"}));
    }
  }

  void readRate(std::string_view value) {
    const std::optional<double> rate = parseProbability(value);
    if (!rate) {
      refuse("rate '" + std::string(value) + "' is not a probability; give a number from 0 to 1, as in 1e-4");
    }
    spec_.rate = *rate;
    rateGiven_ = true;
  }

  void readAt(std::string_view value) {
    if (!value.starts_with(commandPrefix)) {
      refuse("at '" + std::string(value) + "' is not a moment; give at=command:N");
    }
    spec_.atCommand = number("at=command", value.substr(commandPrefix.size()), 1);
  }

  uint64_t number(std::string_view key, std::string_view value, uint64_t least) const {
    uint64_t parsed = 0;
    const auto [end, error] = std::from_chars(value.data(), value.data() + value.size(), parsed);
    const bool whole = error == std::errc() && end == value.data() + value.size();
    if (!whole || parsed < least || (key == "drive" && parsed > UINT32_MAX)) {
      refuse(std::string(key) + " '" + std::string(value) + "' is not a whole number from " + std::to_string(least));
    }
    return parsed;
  }

  void checkWhen() {
    if (rateGiven_ && spec_.atCommand != 0) {
      refuse("rate and at exclude each other; give one");
    }
    if (!rateGiven_ && spec_.atCommand == 0) {
      refuse("it is not said when; add :rate=1e-4 or :at=command:1000");
    }
    if (spec_.atCommand != 0 && !mostGiven_) {
      spec_.most = 1;
    }
  }

  std::string_view text_;
  FaultSpec spec_;
  bool rateGiven_ = false;
  bool mostGiven_ = false;
};

}  // namespace

FaultSpec parseFaultSpec(std::string_view text) { return Reader(text).read(); }

std::string faultSpecText(const FaultSpec& spec) {
  std::string text = faultClassInfo(spec.what).name;
  if (spec.atCommand == 0) {
    std::array<char, 40> digits{};
    const auto [end, error] = std::to_chars(digits.data(), digits.data() + digits.size(), spec.rate);
    text += ":rate=" + std::string(digits.data(), end);
  } else {
    text += ":at=command:" + std::to_string(spec.atCommand);
  }
  const uint64_t usual = spec.atCommand == 0 ? 0 : 1;
  if (spec.most != usual) {
    text += ",most=" + std::to_string(spec.most);
  }
  if (spec.drive != 0) {
    text += ",drive=" + std::to_string(spec.drive);
  }
  return text;
}

std::string faultClassesHelp() {
  std::string text;
  for (const FaultClassInfo& info : faultClasses()) {
    std::array<char, 160> line{};
    std::snprintf(line.data(), line.size(), "  %-20s %s\n", info.name, info.help);
    text += line.data();
  }
  return text;
}

}  // namespace corvane::host
