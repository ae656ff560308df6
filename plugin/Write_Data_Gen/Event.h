#pragma once

#include <cstdint>

namespace vdl {

/// What happened to a block.
enum class EventType : uint8_t {
  None = 0,              ///< a read was issued to a block of which nothing is known
  Write = 1,             ///< a normal write, write-same or trim was issued
  Atomic = 2,            ///< an atomic write was issued
  Hash = 3,              ///< a read's data were kept as a hash
  Invalidate = 4,        ///< the content became unknown
  InvalidateMarker = 5,  ///< the previous content must be gone
};

/// What kind of content an event leaves on the medium.
enum class BlockType : uint32_t {
  Unknown = 0,
  Normal = 1,
  Atomic = 2,  ///< an atomic write that is not finished: the block may hold it or what was there before
  Hash = 3,
};

/// Number of the sector bucket that a block was written with, or a reserved value.
using BlockNum = uint32_t;

namespace block_num {
inline constexpr BlockNum bucketLimit = 0x80000;  ///< bucket indices are below this
inline constexpr BlockNum unknown = 0x80001;      ///< no known bucket
inline constexpr BlockNum zero = 0xFF0000;        ///< the all-zero block of a trim
}  // namespace block_num

/// What the write generator stamped into a block.
struct EmbedData {
  bool valid = false;  ///< false: nothing was stamped
  uint64_t cmd_id = 0;
  uint64_t lba = 0;
};

/// Where one block of an atomic write lies.
struct AtomicSegment {
  uint32_t offset = 0;   ///< position inside the segment, from 0
  uint32_t length = 0;   ///< blocks of the segment
  uint32_t segment = 0;  ///< number of the segment inside the command, from 0
};

struct PeekResult;

/// One step of a block's history.
///
/// The events of a block form a singly linked list, newest first: descending by `cmd_id`, but an event without a
/// command (id 0) goes to the head, whatever stands there.
struct Event {
  EventType type = EventType::None;
  uint64_t cmd_id = 0;  ///< 0: no command owns the event
  BlockType block_type = BlockType::Unknown;
  BlockNum block_num = block_num::unknown;
  uint64_t hash = 0;  ///< of Hash events
  EmbedData embed;
  AtomicSegment segment;  ///< of Atomic events
  Event* next = nullptr;  ///< next older event

  /// Whether the content is settled: a finished write, or a hash.
  bool isKnown() const { return block_type == BlockType::Normal || block_type == BlockType::Hash; }

  /// Whether a reader may look through to the older event: an atomic write that has not finished.
  bool isTransparent() const { return block_type == BlockType::Atomic; }

  /// Looks for the event that a reader sees.
  ///
  /// Invalidation markers are passed over and remembered in the result. With `stop`, the event found is `stop`
  /// itself (never a marker); otherwise it is the newest event, or with `stopAtTransparent` false the newest one
  /// that is not transparent.
  ///
  /// @param head newest event, or null
  /// @param stop an event of the list, or null
  static PeekResult peek(const Event* head, const Event* stop, bool stopAtTransparent);
};

// One mebibyte of pool holds 13107 events; the figure is part of the memory that users plan for.
static_assert(sizeof(Event) == 80);

/// What a block that was read says about itself.
struct ObserveData {
  BlockNum block_num = block_num::unknown;
  EmbedData embed;
};

/// Whether the observation is what the event left; hashes take no part.
bool operator==(const ObserveData& observed, const Event& event);
bool operator==(const Event& event, const ObserveData& observed);

/// The answer of every peek.
struct PeekResult {
  int32_t status = -1003;  ///< 0 found; -1003 nothing found; -1004 the LBA is not in the context
  BlockType block_type = BlockType::Unknown;
  BlockNum block_num = block_num::unknown;
  uint64_t hash = 0;
  EmbedData embed;
  bool invalidated = false;  ///< an invalidation marker newer than the event was passed over
};

}  // namespace vdl
