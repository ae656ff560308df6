#pragma once

#include <cstddef>
#include <cstdint>

#include "Scheduling.h"
#include "support/CompletionBench.h"

namespace benchtest {

/// Bits of the condition state; the command kinds' are those of the completion bench.
namespace bit {
inline constexpr uint64_t read = 1;
inline constexpr uint64_t write = 2;
inline constexpr uint64_t verify = 4;
inline constexpr uint64_t atomic = 8;
inline constexpr uint64_t same = 16;
inline constexpr uint64_t trim = 32;
inline constexpr uint64_t e2e = 64;
inline constexpr uint64_t power = 128;
inline constexpr uint64_t sync = 256;
inline constexpr uint64_t other = uint64_t{1} << 63;  ///< no option of the agent names it
}  // namespace bit

inline vdl::Condition onBit(uint64_t mask) { return vdl::Condition{mask, 0, 0, false}; }

/// The agent with its own choice of the next command: tags become free one by one, and what the agent prepares on
/// them is looked at, or completed through the bench below.
class SchedulingBench : public CompletionBench {
 public:
  using CompletionBench::CompletionBench;

  /// Declares writers for both range queues, so that the start of the test keeps them, and starts the test.
  SchedulingBench& startWithRangeQueues() {
    variables().setWriters("CSZoneReset", 1);
    variables().setWriters("CVNInvalidateRanges", 1);
    start();
    return *this;
  }

  /// Makes a tag the next free one. No other tag may be free.
  void freeTag(uint32_t tag) { host().tags().release(tag); }
  /// Makes the tag the one that is prepared, runs the choice alone, and takes the tag.
  int prepareOn(uint32_t tag, uint64_t conditions = 0) {
    freeTag(tag);
    thread().conditions = conditions;
    const int result = prepare();
    holdTags();
    return result;
  }
  /// One step that finds this tag and status, of which neither need exist.
  int report(uint32_t tag, uint32_t status) {
    *data().lastTagID = tag;
    *data().lastStatusByte = status;
    return vdl::Corvane::execute(&thread(), &config(), &data());
  }
  int prepare() {
    vdl::agent::Step now = step();
    return vdl::agent::prepareNextCommand(now);
  }

  void shareRange(uint64_t lba, uint32_t xferLength) {
    *data().lba = lba;
    *data().xferLength = xferLength;
  }
  void shareRange(uint64_t lba, uint32_t xferLength, uint32_t bound) {
    shareRange(lba, xferLength);
    *data().atomicBound = bound;
  }

  /// What "WriteData" shows.
  Bytes shown() {
    const vdl::Buffer& buffer = *data().writeData;
    return Bytes(buffer.data, buffer.data + buffer.size);
  }
  /// One sector of the pool, as no command stamped it.
  Bytes bucket(uint32_t index) {
    const uint8_t* first = data().buckets + size_t{index} * sectorBytes();
    return Bytes(first, first + sectorBytes());
  }
  /// The newest event of a block.
  vdl::PeekResult expected(uint64_t lba) { return table().peek(lba); }
  const vdl::Event* newestEvent(uint64_t lba) {
    const auto record = table().records().find(lba);
    return record == table().records().end() ? nullptr : record->second.events;
  }
};

/// A sector as a stamp leaves it: the LBA big-endian from byte 8, the number of bytes of the id, the id big-endian.
inline Bytes stamped(Bytes sector, uint64_t lba, uint64_t cmdId) {
  for (unsigned i = 0; i < 8; ++i) {
    sector[8 + i] = static_cast<uint8_t>(lba >> (56 - 8 * i));
  }
  uint8_t bytes = 0;
  for (uint64_t rest = cmdId; rest != 0; rest >>= 8) {
    ++bytes;
  }
  sector[16] = bytes;
  for (unsigned i = 0; i < bytes; ++i) {
    sector[17 + i] = static_cast<uint8_t>(cmdId >> (8 * (bytes - 1U - i)));
  }
  return sector;
}

}  // namespace benchtest
