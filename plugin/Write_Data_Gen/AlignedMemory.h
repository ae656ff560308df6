#pragma once

#include <cstdint>

namespace vdl {

/// Zeroed memory that starts at a page, as a drive that bypasses the page cache wants it: it can then take the bytes
/// from where they are. Goes back through `deletePageAligned`.
///
/// @return null when the memory is not to be had
uint8_t* newPageAligned(uint64_t bytes) noexcept;
/// Null is nothing.
void deletePageAligned(uint8_t* memory) noexcept;

}  // namespace vdl
