#pragma once

#include <cstdint>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <vector>

namespace corvane::host {

/// Reads the values of a JSON object that may be anything: what is missing or of another type is read as nothing,
/// and the first such key is remembered. Throws nothing.
class JsonFields {
 public:
  using Json = nlohmann::ordered_json;

  /// @param object outlives this; one that is no object has no keys
  explicit JsonFields(const Json& object) : object_(object) {}

  uint64_t number(const char* key);
  /// A number that 32 bits hold.
  uint32_t number32(const char* key);
  int32_t signedNumber32(const char* key);
  /// Nothing for null.
  std::optional<uint64_t> numberOrNull(const char* key);
  bool flag(const char* key);
  std::string text(const char* key);
  std::vector<std::string> texts(const char* key);
  /// An object or an array; an empty one when it is missing. Lives as long as the object.
  const Json& part(const char* key);

  /// Notes that a key's value is not what it has to be.
  void fail(const std::string& key);
  /// Takes over the fault of an object inside this one.
  void takeFault(const char* key, const JsonFields& inside);

  /// The first key that was missing or wrong; empty when there was none.
  const std::string& fault() const { return fault_; }

 private:
  const Json* find(const char* key) const;

  const Json& object_;
  std::string fault_;
};

}  // namespace corvane::host
