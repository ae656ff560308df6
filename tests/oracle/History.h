#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <vector>

/// What was asked of a drive, and what a read of it returned, on a handful of blocks: the common language of the oracle
/// (what may a drive return?) and of the agent (what does it accept?).
namespace oracletest {

inline constexpr uint32_t maxBlocks = 4;
inline constexpr uint32_t maxCommands = 12;

enum class Kind : uint8_t {
  write,
  atomicWrite,
  trim,
  found,     ///< no command: from here on each block holds what it is `shown` to hold
  look,      ///< a read that pays no write off, as the parts of a slid read beside its write
  readBack,  ///< the agent's own read of the oldest finished write that waits for it; it pays that write off
  readAhead  ///< the agent's own read of content that it does not know, ahead of an atomic write
};

constexpr bool isRead(Kind kind) { return kind >= Kind::look; }

/// How a command ended for the host. What a failed write left is unknown to everybody.
enum class Ending : uint8_t { good, failed };

struct Command {
  Kind kind = Kind::write;
  Ending ending = Ending::good;
  uint8_t first = 0;   ///< first block
  uint8_t blocks = 1;  ///< one at least
  uint8_t bound = 1;   ///< blocks of an atomic segment; the last one of a command may be shorter

  uint8_t end() const { return static_cast<uint8_t>(first + blocks); }
  bool covers(uint32_t block) const { return block >= first && block < end(); }
  bool overlaps(const Command& other) const { return first < other.end() && other.first < end(); }
};

struct Event {
  uint8_t command;
  bool end;  ///< false: issued
};

/// What the blocks held before the first command.
enum class Base : uint8_t {
  written,  ///< by a good write that is still to be read back, as is the block behind the last one
  trimmed,  ///< the same with a trim
  unknown,  ///< something that nobody in this test wrote
};

/// The content of one block: that of the base, of the command with number value - 1, or one of these.
using Value = uint8_t;
inline constexpr Value baseValue = 0;
inline constexpr Value zeroes = 14;   ///< of whichever trim
inline constexpr Value foreign = 15;  ///< nobody ever wrote it

/// The contents of all blocks, a hexadecimal digit a block; 0 where a read does not reach.
using Image = uint16_t;

constexpr Value valueAt(Image image, uint32_t block) { return static_cast<Value>(image >> (4 * block) & 15); }
constexpr Image withValue(Image image, uint32_t block, Value value) {
  return static_cast<Image>((image & ~(15U << (4 * block))) | static_cast<uint32_t>(value) << (4 * block));
}

/// Commands, and the order in which they were issued and ended. Every command is issued once and ends once, later.
struct History {
  Base base = Base::written;
  uint8_t blocks = 1;
  std::vector<Command> commands;
  std::vector<Event> events;
  std::array<Image, maxCommands> shown{};  ///< what each read but the judged one returned, by command

  uint8_t count() const { return static_cast<uint8_t>(commands.size()); }
  /// What a block holds at the start.
  Value startValue() const { return base == Base::trimmed ? zeroes : baseValue; }
  /// What a write leaves on a block.
  Value valueOf(uint8_t command) const {
    return commands[command].kind == Kind::trim ? zeroes : static_cast<Value>(command + 1);
  }
  /// Position of a command's issue or end among the events.
  std::size_t position(uint8_t command, bool end) const;
  bool issuedBefore(uint8_t a, uint8_t b) const { return position(a, false) < position(b, false); }
};

/// For people: every event in its order, and what the read showed.
std::string describe(const History& history);
std::string describe(const History& history, uint8_t read, Image image);

}  // namespace oracletest
