#pragma once

#include <vector>

#include "host/framework/OptionRegistry.h"
#include "vdl/ConfigManager.h"

/// What an agent registered.
struct vdl::ConfigManager::Impl {
  std::vector<corvane::host::OptionInfo> options;
  void* record = nullptr;
  uint64_t recordBytes = 0;
};
