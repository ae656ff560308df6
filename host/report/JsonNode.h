#pragma once

#include <cstdint>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <vector>

namespace corvane::host::report {

/// A value of a JSON document that knows its file and its place, so that whatever is wrong can be named.
///
/// Refers to the document, which must outlive it. Every operation throws ReportError with one line that names the
/// file, the key and what was expected.
class JsonNode {
 public:
  using Json = nlohmann::ordered_json;

  /// The whole document.
  JsonNode(const Json& document, const std::string& file) : JsonNode(document, file, "") {}

  /// A member that must be there.
  JsonNode at(const std::string& key) const;
  /// A member; nothing when it is not there or null.
  std::optional<JsonNode> find(const std::string& key) const;
  /// The items of a list.
  std::vector<JsonNode> items() const;
  /// The members of an object, in its order.
  std::vector<std::pair<std::string, JsonNode>> members() const;

  std::string text() const;
  uint64_t number() const;
  int64_t signedNumber() const;
  double real() const;
  bool truth() const;
  /// A text of hexadecimal digits as bytes.
  std::vector<uint8_t> bytes() const;
  /// Any value as people write it: texts without quotes, lists with commas.
  std::string anyText() const;

  /// For members that may be missing.
  std::string textOf(const std::string& key) const;
  uint64_t numberOf(const std::string& key) const;
  bool truthOf(const std::string& key) const;
  std::optional<uint64_t> maybeNumber(const std::string& key) const;
  std::vector<std::string> textsOf(const std::string& key) const;
  std::vector<JsonNode> itemsOf(const std::string& key) const;

  /// Refuses the value.
  [[noreturn]] void wrong(const std::string& expected) const;

 private:
  JsonNode(const Json& value, const std::string& file, std::string path)
      : value_(&value), file_(&file), path_(std::move(path)) {}
  const Json& object() const;
  std::string pathOf(const std::string& key) const { return path_.empty() ? key : path_ + "." + key; }

  const Json* value_;
  const std::string* file_;
  std::string path_;
};

}  // namespace corvane::host::report
