#pragma once

#include <cstddef>
#include <cstdint>

namespace corvane::host {

/// Stores an unsigned number with its most significant byte first, as SCSI does (SPC, "Conventions").
template <typename Value>
void putBigEndian(uint8_t* at, Value value) {
  for (size_t i = sizeof(Value); i-- > 0; value = static_cast<Value>(value >> 8)) {
    at[i] = static_cast<uint8_t>(value & 0xFF);
  }
}

/// Reads what `putBigEndian` stores.
template <typename Value>
Value getBigEndian(const uint8_t* at) {
  Value value = 0;
  for (size_t i = 0; i < sizeof(Value); ++i) {
    value = static_cast<Value>(uint64_t{value} << 8 | at[i]);
  }
  return value;
}

}  // namespace corvane::host
