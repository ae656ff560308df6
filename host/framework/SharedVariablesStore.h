#pragma once

#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <variant>

#include "host/framework/LBARangeQueueImpl.h"
#include "host/framework/SharedVariables.h"

namespace corvane::host {

/// A range queue with what is behind it.
struct RangeQueueHost {
  RangeQueueHost() { platform.impl = &state; }

  vdl::LBARangeQueue::Impl state;
  vdl::LBARangeQueue platform;
};

/// The variables by name. Each lives on the heap, so its address stays when others join.
struct SharedVariables::Store {
  using Value =
      std::variant<std::unique_ptr<uint32_t>, std::unique_ptr<uint64_t>, std::unique_ptr<bool>,
                   std::unique_ptr<vdl::Buffer>, std::unique_ptr<TaggedViews>, std::unique_ptr<RangeQueueHost>>;

  /// The variable of that name and kind, created from `arguments` on first use; null when the name has another kind.
  template <typename T, typename... Arguments>
  T* get(std::string_view name, Arguments... arguments) {
    auto found = values.find(name);
    if (found == values.end()) {
      found = values.emplace(std::string(name), Value(std::make_unique<T>(arguments...))).first;
    }
    auto* value = std::get_if<std::unique_ptr<T>>(&found->second);
    return value == nullptr ? nullptr : value->get();
  }

  uint32_t tags = 0;
  std::map<std::string, Value, std::less<>> values;
  std::map<std::string, uint32_t, std::less<>> writers;
};

}  // namespace corvane::host
