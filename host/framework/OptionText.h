#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "host/framework/OptionRegistry.h"

namespace corvane::host {

/// The target's value as a user would write it.
std::string optionValueText(OptionKind kind, const void* target);

/// Decimal, or hexadecimal with 0x; nothing for any other text and for numbers above 32 bits.
std::optional<uint32_t> parseU32(std::string_view text);

/// true, on, yes, 1; false, off, no, 0; nothing for any other text.
std::optional<bool> parseBool(std::string_view text);

}  // namespace corvane::host
