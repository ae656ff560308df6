#include "host/cli/JsonFields.h"

#include <limits>

namespace corvane::host {

uint64_t JsonFields::number(const char* key) {
  const Json* value = find(key);
  if (value == nullptr || !value->is_number_unsigned()) {
    fail(key);
    return 0;
  }
  return value->get<uint64_t>();
}

uint32_t JsonFields::number32(const char* key) {
  const uint64_t value = number(key);
  if (value > std::numeric_limits<uint32_t>::max()) {
    fail(key);
    return 0;
  }
  return static_cast<uint32_t>(value);
}

int32_t JsonFields::signedNumber32(const char* key) {
  const Json* value = find(key);
  // A number above the largest signed one is unsigned, so asking for the signed one would wrap it.
  const bool whole = value != nullptr && value->is_number_integer() &&
                     (!value->is_number_unsigned() || value->get<uint64_t>() <= std::numeric_limits<int32_t>::max());
  if (!whole || value->get<int64_t>() < std::numeric_limits<int32_t>::min()) {
    fail(key);
    return 0;
  }
  return static_cast<int32_t>(value->get<int64_t>());
}

std::optional<uint64_t> JsonFields::numberOrNull(const char* key) {
  const Json* value = find(key);
  return value != nullptr && value->is_null() ? std::nullopt : std::optional(number(key));
}

bool JsonFields::flag(const char* key) {
  const Json* value = find(key);
  if (value == nullptr || !value->is_boolean()) {
    fail(key);
    return false;
  }
  return value->get<bool>();
}

std::string JsonFields::text(const char* key) {
  const Json* value = find(key);
  if (value == nullptr || !value->is_string()) {
    fail(key);
    return {};
  }
  return value->get_ref<const std::string&>();
}

std::vector<std::string> JsonFields::texts(const char* key) {
  std::vector<std::string> list;
  for (const Json& entry : part(key)) {
    if (!entry.is_string()) {
      fail(key);
      return {};
    }
    list.push_back(entry.get_ref<const std::string&>());
  }
  return list;
}

const JsonFields::Json& JsonFields::part(const char* key) {
  static const Json nothing = Json::object();
  const Json* value = find(key);
  if (value == nullptr || !value->is_structured()) {
    fail(key);
    return nothing;
  }
  return *value;
}

void JsonFields::fail(const std::string& key) {
  if (fault_.empty()) {
    fault_ = key;
  }
}

void JsonFields::takeFault(const char* key, const JsonFields& inside) {
  if (!inside.fault().empty()) {
    fail(std::string(key) + "." + inside.fault());
  }
}

const JsonFields::Json* JsonFields::find(const char* key) const {
  if (!object_.is_object()) {
    return nullptr;
  }
  const auto at = object_.find(key);
  return at == object_.end() ? nullptr : &*at;
}

}  // namespace corvane::host
