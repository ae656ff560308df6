#include "vdl/ConfigManager.h"

#include <algorithm>
#include <exception>

#include "host/framework/ConfigManagerImpl.h"
#include "host/framework/OptionText.h"
#include "vdl/Status.h"

namespace vdl {

namespace {

using corvane::host::OptionInfo;
using corvane::host::OptionKind;

/// Runs a registration without letting an exception out.
template <typename Body>
int guarded(Body&& body) {
  try {
    return body();
  } catch (const std::exception&) {
    return status::outOfMemory;
  }
}

OptionInfo* find(ConfigManager::Impl& impl, const char* name) {
  const auto found =
      std::find_if(impl.options.begin(), impl.options.end(), [name](const OptionInfo& o) { return o.name == name; });
  return found == impl.options.end() ? nullptr : &*found;
}

int add(ConfigManager::Impl& impl, OptionKind kind, const char* name, void* target, const char* help, uint32_t min = 0,
        uint32_t max = 0) {
  return guarded([&]() -> int {
    if (name == nullptr || target == nullptr || find(impl, name) != nullptr) {
      return status::incompatibleOptions;
    }
    OptionInfo option;
    option.name = name;
    option.kind = kind;
    option.min = min;
    option.max = max;
    option.defaultText = corvane::host::optionValueText(kind, target);
    option.help = help == nullptr ? "" : help;
    option.target = target;
    impl.options.push_back(std::move(option));
    return status::ok;
  });
}

}  // namespace

int ConfigManager::registerConfigData(void* record, uint64_t sizeBytes) {
  if (record == nullptr) {
    return status::missingSetting;
  }
  impl->record = record;
  impl->recordBytes = sizeBytes;
  return status::ok;
}

int ConfigManager::addU32(const char* name, uint32_t* target, uint32_t min, uint32_t max, const char* help) {
  if (target == nullptr || min > max || *target < min || *target > max) {
    return status::incompatibleOptions;
  }
  return add(*impl, OptionKind::u32, name, target, help, min, max);
}

int ConfigManager::addBool(const char* name, bool* target, const char* help) {
  return add(*impl, OptionKind::boolean, name, target, help);
}

int ConfigManager::addString(const char* name, std::string* target, const char* help) {
  return add(*impl, OptionKind::text, name, target, help);
}

int ConfigManager::addBuffer(const char* name, Buffer* target, const char* help) {
  return add(*impl, OptionKind::buffer, name, target, help);
}

int ConfigManager::addCondition(const char* name, Condition* target, const char* help) {
  return add(*impl, OptionKind::condition, name, target, help);
}

int ConfigManager::deprecate(const char* name, const char* text) {
  return guarded([&]() -> int {
    OptionInfo* option = name == nullptr ? nullptr : find(*impl, name);
    if (option == nullptr) {
      return status::notFound;
    }
    option->deprecation = text == nullptr ? "" : text;
    return status::ok;
  });
}

}  // namespace vdl
