#include "host/report/JsonNode.h"

#include "host/report/ReportError.h"

namespace corvane::host::report {
namespace {

constexpr size_t shownOfAValue = 40;

std::string shortened(const JsonNode::Json& value) {
  std::string text = value.dump(-1, ' ', true, JsonNode::Json::error_handler_t::replace);
  if (text.size() > shownOfAValue) {
    text.resize(shownOfAValue);
    text += "...";
  }
  return text;
}

int digitOf(char c) {
  if (c >= '0' && c <= '9') {
    return c - '0';
  }
  if (c >= 'a' && c <= 'f') {
    return c - 'a' + 10;
  }
  return c >= 'A' && c <= 'F' ? c - 'A' + 10 : -1;
}

}  // namespace

const JsonNode::Json& JsonNode::object() const {
  if (!value_->is_object()) {
    wrong("an object");
  }
  return *value_;
}

JsonNode JsonNode::at(const std::string& key) const {
  const Json& members = object();
  const auto found = members.find(key);
  if (found == members.end()) {
    throw ReportError("'" + *file_ + "' has no key '" + pathOf(key) + "'; give the result.json of a run");
  }
  return {*found, *file_, pathOf(key)};
}

std::optional<JsonNode> JsonNode::find(const std::string& key) const {
  const Json& members = object();
  const auto found = members.find(key);
  if (found == members.end() || found->is_null()) {
    return std::nullopt;
  }
  return JsonNode(*found, *file_, pathOf(key));
}

std::vector<JsonNode> JsonNode::items() const {
  if (!value_->is_array()) {
    wrong("a list");
  }
  std::vector<JsonNode> nodes;
  for (const Json& item : *value_) {
    nodes.push_back({item, *file_, path_ + "[" + std::to_string(nodes.size()) + "]"});
  }
  return nodes;
}

std::vector<std::pair<std::string, JsonNode>> JsonNode::members() const {
  std::vector<std::pair<std::string, JsonNode>> nodes;
  for (const auto& [key, value] : object().items()) {
    nodes.emplace_back(key, JsonNode(value, *file_, pathOf(key)));
  }
  return nodes;
}

std::string JsonNode::text() const {
  if (!value_->is_string()) {
    wrong("a text");
  }
  return value_->get<std::string>();
}

uint64_t JsonNode::number() const {
  if (!value_->is_number_unsigned()) {
    wrong("a whole number from 0 on");
  }
  return value_->get<uint64_t>();
}

int64_t JsonNode::signedNumber() const {
  if (!value_->is_number_integer()) {
    wrong("a whole number");
  }
  return value_->get<int64_t>();
}

double JsonNode::real() const {
  if (!value_->is_number()) {
    wrong("a number");
  }
  return value_->get<double>();
}

bool JsonNode::truth() const {
  if (!value_->is_boolean()) {
    wrong("true or false");
  }
  return value_->get<bool>();
}

std::vector<uint8_t> JsonNode::bytes() const {
  const std::string digits = text();
  if (digits.size() % 2 != 0) {
    wrong("two hexadecimal digits a byte");
  }
  std::vector<uint8_t> bytes;
  bytes.reserve(digits.size() / 2);
  for (size_t i = 0; i < digits.size(); i += 2) {
    const int high = digitOf(digits[i]);
    const int low = digitOf(digits[i + 1]);
    if (high < 0 || low < 0) {
      wrong("two hexadecimal digits a byte");
    }
    bytes.push_back(static_cast<uint8_t>(high * 16 + low));
  }
  return bytes;
}

std::string JsonNode::anyText() const {
  if (value_->is_string()) {
    return value_->get<std::string>();
  }
  if (!value_->is_array()) {
    return value_->dump(-1, ' ', false, Json::error_handler_t::replace);
  }
  std::string joined;
  for (const JsonNode& item : items()) {
    joined += (joined.empty() ? "" : ", ") + item.anyText();
  }
  return joined;
}

std::string JsonNode::textOf(const std::string& key) const {
  const auto node = find(key);
  return node ? node->text() : "";
}

uint64_t JsonNode::numberOf(const std::string& key) const { return maybeNumber(key).value_or(0); }

bool JsonNode::truthOf(const std::string& key) const {
  const auto node = find(key);
  return node && node->truth();
}

std::optional<uint64_t> JsonNode::maybeNumber(const std::string& key) const {
  const auto node = find(key);
  return node ? std::optional(node->number()) : std::nullopt;
}

std::vector<std::string> JsonNode::textsOf(const std::string& key) const {
  std::vector<std::string> texts;
  for (const JsonNode& item : itemsOf(key)) {
    texts.push_back(item.text());
  }
  return texts;
}

std::vector<JsonNode> JsonNode::itemsOf(const std::string& key) const {
  const auto node = find(key);
  return node ? node->items() : std::vector<JsonNode>{};
}

void JsonNode::wrong(const std::string& expected) const {
  throw ReportError("'" + *file_ + "': " + (path_.empty() ? "the document" : "key '" + path_ + "'") + " is " +
                    shortened(*value_) + "; " + expected + " was expected there");
}

}  // namespace corvane::host::report
