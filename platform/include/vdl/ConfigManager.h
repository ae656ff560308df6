#pragma once

#include <cstdint>
#include <string>

#include "vdl/Buffer.h"
#include "vdl/Condition.h"

namespace vdl {

/// Takes an agent's options and fills them from the test's configuration before the test starts.
///
/// An option's target must stay valid until `freeConfigData`, and must hold the option's default when it is
/// registered. Names and help texts are copied. Every operation returns 0 or a negative status.
class ConfigManager {
 public:
  /// Keeps the agent's configuration record; it is passed to every drive callback and to `freeConfigData`.
  int registerConfigData(void* record, uint64_t sizeBytes);

  /// An unsigned option; values outside min to max, both included, are refused before the test starts.
  int addU32(const char* name, uint32_t* target, uint32_t min, uint32_t max, const char* help);
  int addBool(const char* name, bool* target, const char* help);
  int addString(const char* name, std::string* target, const char* help);
  /// Bytes that the user supplies; the framework replaces the target's storage by one that the target owns.
  int addBuffer(const char* name, Buffer* target, const char* help);
  int addCondition(const char* name, Condition* target, const char* help);

  /// Marks an option that was added before as deprecated; the text is shown to users who set it.
  int deprecate(const char* name, const char* text);

  /// The implementation's own state.
  struct Impl;
  Impl* impl = nullptr;
};

}  // namespace vdl
