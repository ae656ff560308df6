#pragma once

#include <cstddef>
#include <cstdint>

namespace vdl {

/// Zeroed memory that starts at a page, as a drive that bypasses the page cache wants it: it can then take the bytes
/// from where they are. Goes back through `deletePageAligned`.
///
/// @return null when the memory is not to be had
uint8_t* newPageAligned(uint64_t bytes) noexcept;
/// Null is nothing.
void deletePageAligned(uint8_t* memory) noexcept;

/// Memory for much that is visited in no order: 2 MiB that the kernel is asked to map as one page, so that finding an
/// object does not cost a walk through the page tables as well. Not zeroed. Goes back through `deleteHugeBlock`.
inline constexpr std::size_t hugeBlockBytes = std::size_t{2} << 20;
/// @return null when the memory is not to be had
void* newHugeBlock() noexcept;
void deleteHugeBlock(void* memory) noexcept;

}  // namespace vdl
