#include "tests/oracle/DriveOracle.h"

#include <algorithm>
#include <stdexcept>

namespace oracletest {

namespace {

constexpr uint32_t maxUnits = 32;
constexpr uint8_t nobody = 0xFF;

/// What a drive changes in one moment.
struct Unit {
  uint8_t command;
  uint8_t first;
  uint8_t end;  ///< behind the last block
  Value value;
};

/// A moment in the life of a drive. Four bits a block: what it holds; what the judged read saw of it, `unseen` before.
struct State {
  uint16_t content = 0;
  uint16_t seen = 0xFFFF;
  uint32_t settled = 0;  ///< units that were carried out, or never will be
  uint16_t looked = 0;   ///< four bits a slot of another read under way: the blocks that it looked at
  auto operator<=>(const State&) const = default;
  uint64_t key() const {
    return (uint64_t{content} | uint64_t{seen} << 16 | uint64_t{looked} << 32) ^ settled * 0x9E3779B97F4A7C15U;
  }
};

constexpr Value unseen = 15;  // content is never `foreign`

/// A set of states that remembers the order in which they came.
class States {
 public:
  States() : table_(64, 0) {}

  void add(const State& state) {
    if (2 * (all_.size() + 1) > table_.size()) {
      grow();
    }
    uint32_t& place = placeOf(state);
    if (place == 0) {
      all_.push_back(state);
      place = static_cast<uint32_t>(all_.size());
    }
  }
  std::size_t size() const { return all_.size(); }
  State at(std::size_t i) const { return all_[i]; }
  const std::vector<State>& all() const { return all_; }
  void clear() {
    all_.clear();
    std::fill(table_.begin(), table_.end(), 0);
  }

 private:
  uint32_t& placeOf(const State& state) {
    std::size_t i = (state.key() * 0xD6E8FEB86659FD93U >> 32) & (table_.size() - 1);
    while (table_[i] != 0 && all_[table_[i] - 1] != state) {
      i = (i + 1) & (table_.size() - 1);
    }
    return table_[i];
  }
  void grow() {
    table_.assign(table_.size() * 2, 0);
    for (std::size_t i = 0; i < all_.size(); ++i) {
      placeOf(all_[i]) = static_cast<uint32_t>(i + 1);
    }
  }

  std::vector<State> all_;
  std::vector<uint32_t> table_;  ///< index + 1 into `all_`
};

class Search {
 public:
  Search(const History& history, uint8_t read, Order order) : history_(history), judged_(read), order_(order) {
    for (uint8_t i = 0; i < history.count(); ++i) {
      addCommand(i);
    }
    if (units_.size() > maxUnits || history.blocks > maxBlocks) {
      throw std::length_error("too large a history for the oracle");
    }
  }

  std::vector<Image> run() {
    State start;
    for (uint32_t block = 0; block < history_.blocks; ++block) {
      start.content = withValue(start.content, block, history_.startValue());
    }
    now_.add(start);
    for (const Event& event : history_.events) {
      letTimePass();
      if (!event.end) {
        beginCommand(event.command);
        continue;
      }
      endCommand(event.command);
      if (!readsToCome(event)) {
        break;
      }
    }
    return seenImages();
  }

 private:
  void addCommand(uint8_t i) {
    const Command& command = history_.commands[i];
    if (isRead(command.kind)) {
      return;
    }
    const uint32_t atOnce = command.kind == Kind::atomicWrite ? command.bound : 1;
    for (uint32_t first = command.first; first < command.end(); first += atOnce) {
      const uint32_t end = std::min<uint32_t>(first + atOnce, command.end());
      const Value value = command.kind == Kind::found ? valueAt(history_.shown[i], first) : history_.valueOf(i);
      units_.push_back({i, static_cast<uint8_t>(first), static_cast<uint8_t>(end), value});
    }
  }

  /// Whether a read ends after this event. When none does, nothing that follows can tell any more what was possible.
  bool readsToCome(const Event& event) const {
    return std::any_of(
        history_.events.begin() + (&event - history_.events.data()) + 1, history_.events.end(),
        [this](const Event& later) { return later.end && isRead(history_.commands[later.command].kind); });
  }

  bool isOpen(uint8_t command) const { return std::find(open_.begin(), open_.end(), command) != open_.end(); }

  static bool isSettled(const State& state, std::size_t unit) { return (state.settled >> unit & 1) != 0; }

  bool isSettledWrite(const State& state, uint8_t command) const {
    for (std::size_t u = 0; u < units_.size(); ++u) {
      if (units_[u].command == command && !isSettled(state, u)) {
        return false;
      }
    }
    return true;
  }

  uint32_t slotOf(uint8_t read) const {
    return static_cast<uint32_t>(std::find(slots_.begin(), slots_.end(), read) - slots_.begin());
  }

  void beginCommand(uint8_t command) {
    open_.push_back(command);
    if (isRead(history_.commands[command].kind) && command != judged_) {
      const auto slot = std::find(slots_.begin(), slots_.end(), nobody);
      if (slot == slots_.end()) {
        throw std::length_error("too many reads at once for the oracle");
      }
      *slot = command;
    }
  }

  bool hasLooked(const State& state, uint8_t read, uint32_t block) const {
    if (read == judged_) {
      return valueAt(state.seen, block) != unseen;
    }
    return (state.looked >> (4 * slotOf(read) + block) & 1) != 0;
  }

  bool hasLookedEverywhere(const State& state, uint8_t read) const {
    const Command& command = history_.commands[read];
    for (uint32_t block = command.first; block < command.end(); ++block) {
      if (!hasLooked(state, read, block)) {
        return false;
      }
    }
    return true;
  }

  /// Whether everything before the command in the order of issue that it has to wait for is over.
  bool mayBegin(const State& state, uint8_t command) const {
    if (order_ == Order::any) {
      return true;
    }
    const Command& mine = history_.commands[command];
    for (const uint8_t other : open_) {
      if (other == command) {
        break;  // the others were issued later
      }
      const Command& theirs = history_.commands[other];
      if (!theirs.overlaps(mine) || (isRead(theirs.kind) && isRead(mine.kind))) {
        continue;
      }
      if (!(isRead(theirs.kind) ? hasLookedEverywhere(state, other) : isSettledWrite(state, other))) {
        return false;
      }
    }
    return true;
  }

  /// Whether a read that is under way would see the segment in two pieces.
  bool tearsARead(const State& state, const Unit& unit) const {
    for (const uint8_t read : open_) {
      const Command& command = history_.commands[read];
      if (!isRead(command.kind)) {
        continue;
      }
      uint32_t before = 0;
      uint32_t after = 0;
      for (uint32_t block = unit.first; block < unit.end; ++block) {
        if (command.covers(block)) {
          ++(hasLooked(state, read, block) ? before : after);
        }
      }
      if (before != 0 && after != 0) {
        return true;
      }
    }
    return false;
  }

  void tryUnit(const State& state, std::size_t u) {
    const Unit& unit = units_[u];
    if (isSettled(state, u) || !isOpen(unit.command) || !mayBegin(state, unit.command)) {
      return;
    }
    State next = state;
    next.settled = next.settled | 1U << u;
    if (order_ == Order::asIssued && history_.commands[unit.command].ending == Ending::failed) {
      now_.add(next);  // it never will be carried out, and what waits for it goes on
    }
    if (!tearsARead(state, unit)) {
      for (uint32_t block = unit.first; block < unit.end; ++block) {
        next.content = withValue(next.content, block, unit.value);
      }
      now_.add(next);
    }
  }

  void tryLook(const State& state, uint8_t read, uint32_t block) {
    if (hasLooked(state, read, block) || !mayBegin(state, read)) {
      return;
    }
    State next = state;
    const Value found = valueAt(state.content, block);
    if (read == judged_) {
      next.seen = withValue(next.seen, block, found);
    } else if (found != valueAt(history_.shown[read], block)) {
      return;
    } else {
      next.looked = static_cast<uint16_t>(next.looked | 1U << (4 * slotOf(read) + block));
    }
    now_.add(next);
  }

  /// Everything that may happen before the next event.
  void letTimePass() {
    for (std::size_t i = 0; i < now_.size(); ++i) {
      const State state = now_.at(i);
      for (std::size_t u = 0; u < units_.size(); ++u) {
        tryUnit(state, u);
      }
      for (const uint8_t read : open_) {
        const Command& command = history_.commands[read];
        for (uint32_t block = command.first; isRead(command.kind) && block < command.end(); ++block) {
          tryLook(state, read, block);
        }
      }
    }
  }

  void endCommand(uint8_t command) {
    const Command& ended = history_.commands[command];
    then_.clear();
    for (const State& state : now_.all()) {
      if (isRead(ended.kind)) {
        if (hasLookedEverywhere(state, command)) {
          then_.add(withoutRead(state, command));
        }
      } else if (isSettledWrite(state, command)) {
        then_.add(state);
      } else if (ended.ending == Ending::failed) {
        then_.add(settled(state, command));
      }
    }
    std::swap(now_, then_);
    std::replace(slots_.begin(), slots_.end(), command, nobody);
    open_.erase(std::find(open_.begin(), open_.end(), command));
  }

  State withoutRead(State state, uint8_t read) const {
    if (read != judged_) {
      state.looked = static_cast<uint16_t>(state.looked & ~(15U << (4 * slotOf(read))));
    }
    return state;
  }

  State settled(State state, uint8_t command) const {
    for (std::size_t u = 0; u < units_.size(); ++u) {
      if (units_[u].command == command) {
        state.settled = state.settled | 1U << u;
      }
    }
    return state;
  }

  std::vector<Image> seenImages() const {
    const Command& read = history_.commands[judged_];
    std::vector<Image> images;
    for (const State& state : now_.all()) {
      Image image = 0;
      for (uint32_t block = read.first; block < read.end(); ++block) {
        image = withValue(image, block, valueAt(state.seen, block));
      }
      images.push_back(image);
    }
    std::sort(images.begin(), images.end());
    images.erase(std::unique(images.begin(), images.end()), images.end());
    return images;
  }

  const History& history_;
  uint8_t judged_;
  Order order_;
  std::vector<Unit> units_;
  std::vector<uint8_t> open_;                                        ///< outstanding commands in the order of issue
  std::array<uint8_t, 4> slots_ = {nobody, nobody, nobody, nobody};  ///< other reads under way
  States now_;
  States then_;
};

}  // namespace

std::vector<Image> possibleImages(const History& history, uint8_t read, Order order) {
  return Search(history, read, order).run();
}

}  // namespace oracletest
