#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "vdl/ConfigManager.h"

namespace corvane::host {

enum class OptionKind : uint8_t { u32, boolean, text, buffer, condition };

/// "U32", "Bool", "String", "Buffer" or "Condition".
const char* optionKindName(OptionKind kind);

/// One option as the agent registered it.
struct OptionInfo {
  std::string name;
  OptionKind kind;
  uint32_t min = 0;         ///< u32 only, included
  uint32_t max = 0;         ///< u32 only, included
  std::string defaultText;  ///< the target's value at registration, as a user would write it
  std::string help;
  std::string deprecation;  ///< empty: not deprecated
  void* target = nullptr;   ///< the agent's; typed by kind
};

/// The options of one agent behind `vdl::ConfigManager`.
class OptionRegistry {
 public:
  OptionRegistry();
  ~OptionRegistry();
  OptionRegistry(const OptionRegistry&) = delete;
  OptionRegistry& operator=(const OptionRegistry&) = delete;

  vdl::ConfigManager& platform();

  /// In registration order.
  const std::vector<OptionInfo>& options() const;
  /// Null when there is none of that name; names match exactly.
  const OptionInfo* find(std::string_view name) const;

  /// What the agent registered with `registerConfigData`, and its size.
  void* record() const;
  uint64_t recordBytes() const;

  /// Parses a value and stores it in the option's target.
  ///
  /// U32 takes decimal or 0x-hexadecimal; Bool takes true, false, on, off, yes, no, 1, 0; Buffer takes the bytes of
  /// the text, or of a file of at most 256 MiB with a leading '@'. Conditions are set with setCondition.
  ///
  /// @return an empty string, or one line that names the option, the value and what would be accepted (for an
  ///         unknown name the nearest known one); the target is then unchanged
  [[nodiscard]] std::string set(std::string_view name, std::string_view value);
  [[nodiscard]] std::string setCondition(std::string_view name, const vdl::Condition& value);

  /// The option's value as it stands now, as a user would write it.
  std::string valueText(const OptionInfo& option) const;

 private:
  struct State;
  std::unique_ptr<State> state_;
  vdl::ConfigManager platform_;
};

}  // namespace corvane::host
