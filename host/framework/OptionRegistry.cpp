#include "host/framework/OptionRegistry.h"

#include <algorithm>
#include <cstring>
#include <fstream>
#include <vector>

#include "host/base/NearestName.h"
#include "host/framework/ConfigManagerImpl.h"
#include "host/framework/OptionText.h"
#include "vdl/Status.h"

namespace corvane::host {

namespace {

constexpr size_t longestFile = size_t{256} << 20;  ///< bytes, so that nobody waits for a device to end

std::string quoted(std::string_view text) {
  std::string out(1, '"');
  out.append(text).push_back('"');
  return out;
}

std::string refusal(const OptionInfo& option, std::string_view value, const std::string& accepted) {
  return "option " + quoted(option.name) + " cannot be " + quoted(value) + ": " + accepted;
}

std::string setU32(const OptionInfo& option, std::string_view value) {
  const auto number = parseU32(value);
  if (!number || *number < option.min || *number > option.max) {
    return refusal(option, value,
                   "it takes a whole number from " + std::to_string(option.min) + " to " + std::to_string(option.max));
  }
  *static_cast<uint32_t*>(option.target) = *number;
  return {};
}

std::string setBool(const OptionInfo& option, std::string_view value) {
  const auto flag = parseBool(value);
  if (!flag) {
    return refusal(option, value, "it takes true or false (also on, off, yes, no, 1, 0)");
  }
  *static_cast<bool*>(option.target) = *flag;
  return {};
}

/// @return an empty string, or why it is no value
std::string readFile(const std::string& path, std::string& content) {
  std::ifstream file(path, std::ios::binary);
  content.clear();
  std::vector<char> piece(size_t{1} << 20);
  while (file && content.size() <= longestFile) {
    file.read(piece.data(), static_cast<std::streamsize>(piece.size()));
    content.append(piece.data(), static_cast<size_t>(file.gcount()));
  }
  if (content.size() > longestFile) {
    return "is longer than " + std::to_string(longestFile >> 20) + " MiB";
  }
  // A folder opens like a file and only fails when it is read.
  return file.is_open() && !file.bad() ? "" : "cannot be read";
}

std::string setBuffer(const OptionInfo& option, std::string_view value) {
  std::string bytes(value);
  if (value.starts_with('@')) {
    const std::string path(value.substr(1));
    if (const std::string fault = readFile(path, bytes); !fault.empty()) {
      return refusal(option, value, "the file " + quoted(path) + " " + fault);
    }
  }
  auto& buffer = *static_cast<vdl::Buffer*>(option.target);
  vdl::Buffer fresh;
  if (fresh.reserve(bytes.size()) != vdl::status::ok) {
    return refusal(option, value, "there is no memory for its " + std::to_string(bytes.size()) + " bytes");
  }
  std::memcpy(fresh.data, bytes.data(), bytes.size());
  fresh.size = bytes.size();
  buffer = std::move(fresh);
  return {};
}

}  // namespace

const char* optionKindName(OptionKind kind) {
  switch (kind) {
    case OptionKind::u32:
      return "U32";
    case OptionKind::boolean:
      return "Bool";
    case OptionKind::text:
      return "String";
    case OptionKind::buffer:
      return "Buffer";
    case OptionKind::condition:
      break;
  }
  return "Condition";
}

struct OptionRegistry::State {
  vdl::ConfigManager::Impl manager;
};

OptionRegistry::OptionRegistry() : state_(std::make_unique<State>()) { platform_.impl = &state_->manager; }
OptionRegistry::~OptionRegistry() = default;

vdl::ConfigManager& OptionRegistry::platform() { return platform_; }

const std::vector<OptionInfo>& OptionRegistry::options() const { return state_->manager.options; }

const OptionInfo* OptionRegistry::find(std::string_view name) const {
  const auto& all = options();
  const auto found = std::find_if(all.begin(), all.end(), [name](const OptionInfo& o) { return o.name == name; });
  return found == all.end() ? nullptr : &*found;
}

void* OptionRegistry::record() const { return state_->manager.record; }

uint64_t OptionRegistry::recordBytes() const { return state_->manager.recordBytes; }

std::string OptionRegistry::set(std::string_view name, std::string_view value) {
  const OptionInfo* option = find(name);
  if (option == nullptr) {
    std::vector<std::string> names;
    for (const OptionInfo& known : options()) {
      names.push_back(known.name);
    }
    const std::string nearest = nearestName(name, names);
    return "there is no option " + quoted(name) +
           (nearest.empty() ? "; \"corvane options\" lists all of them" : "; did you mean " + quoted(nearest) + "?");
  }
  switch (option->kind) {
    case OptionKind::u32:
      return setU32(*option, value);
    case OptionKind::boolean:
      return setBool(*option, value);
    case OptionKind::text:
      *static_cast<std::string*>(option->target) = value;
      return {};
    case OptionKind::buffer:
      return setBuffer(*option, value);
    case OptionKind::condition:
      break;
  }
  return refusal(*option, value, "conditions follow from the commands that the test selects");
}

std::string OptionRegistry::setCondition(std::string_view name, const vdl::Condition& value) {
  const OptionInfo* option = find(name);
  if (option == nullptr || option->kind != OptionKind::condition) {
    return "there is no condition option " + quoted(name);
  }
  *static_cast<vdl::Condition*>(option->target) = value;
  return {};
}

std::string OptionRegistry::valueText(const OptionInfo& option) const {
  return optionValueText(option.kind, option.target);
}

}  // namespace corvane::host
