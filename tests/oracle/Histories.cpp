#include "tests/oracle/Histories.h"

#include <algorithm>

namespace oracletest {

namespace {

std::vector<Command> choicesOf(const Bound& bound) {
  std::vector<Command> choices;
  for (const Ending ending : {Ending::good, Ending::failed}) {
    for (uint8_t first = 0; first < bound.blocks; ++first) {
      for (uint8_t blocks = 1; first + blocks <= bound.blocks; ++blocks) {
        choices.push_back({bound.trims ? Kind::trim : Kind::write, ending, first, blocks, 1});
        for (uint8_t segment = bound.shorterBounds ? 1 : blocks; segment <= blocks; ++segment) {
          choices.push_back({Kind::atomicWrite, ending, first, blocks, segment});
        }
      }
    }
  }
  return choices;
}

using Events = std::vector<Event>;

/// Every order of issues and ends of `writes` writes and, with the next number, of a read.
class Interleavings {
 public:
  Interleavings(uint8_t writes, bool withRead) : writes_(writes), withRead_(withRead) { extend(0, false, {}); }

  const std::vector<Events>& all() const { return all_; }

 private:
  void extend(uint8_t issued, bool readIssued, const std::vector<uint8_t>& open) {
    if (issued < writes_) {
      step({issued, false}, static_cast<uint8_t>(issued + 1), readIssued, open);
    }
    if (withRead_ && !readIssued) {
      step({writes_, false}, issued, true, open);
    }
    for (const uint8_t command : open) {
      step({command, true}, issued, readIssued, open);
    }
    if (issued == writes_ && readIssued == withRead_ && open.empty()) {
      all_.push_back(now_);
    }
  }

  void step(Event event, uint8_t issued, bool readIssued, std::vector<uint8_t> open) {
    now_.push_back(event);
    if (event.end) {
      std::erase(open, event.command);
    } else {
      open.push_back(event.command);
    }
    extend(issued, readIssued, open);
    now_.pop_back();
  }

  uint8_t writes_;
  bool withRead_;
  Events now_;
  std::vector<Events> all_;
};

/// Whether a write is issued only when the read has ended.
bool leavesAWriteBehind(const Events& events, uint8_t read) {
  const auto end = std::find_if(events.begin(), events.end(),
                                [read](const Event& event) { return event.end && event.command == read; });
  return std::any_of(end, events.end(), [](const Event& event) { return !event.end; });
}

/// The writes that the agent reads back, in the order in which it does.
std::vector<uint8_t> readBackQueue(const History& history) {
  std::vector<uint8_t> queue;
  for (const Event& event : history.events) {
    const Command& command = history.commands[event.command];
    if (event.end && !isRead(command.kind) && (command.ending == Ending::good || command.kind == Kind::atomicWrite)) {
      queue.push_back(event.command);
    }
  }
  return queue;
}

void append(History& history, Command read) {
  const auto number = static_cast<uint8_t>(history.commands.size());
  history.commands.push_back(read);
  history.events.push_back({number, false});
  history.events.push_back({number, true});
}

/// Gives the histories of one choice of writes and one order their reads.
class Reads {
 public:
  Reads(const Bound& bound, const std::function<bool(const History&)>& judge) : bound_(bound), judge_(judge) {}

  /// @param history writes, and with their number the read among them if there is one
  bool judge(const History& history) {
    if (bound_.readBacks) {
      return withReadBacks(history);
    }
    if (bound_.earlierRead || !bound_.readAmongWrites) {
      return withLastRead(history);
    }
    return eachRange([&](Command read) {
      History one = history;
      one.commands[bound_.writes] = read;
      return give(one);
    });
  }

  uint64_t count() const { return count_; }

 private:
  bool give(const History& history) {
    ++count_;
    return judge_(history);
  }

  bool withLastRead(const History& history) {
    return eachRange([&](Command read) {
      History one = history;
      append(one, read);
      return give(one);
    });
  }

  bool withReadBacks(const History& history) {
    History one = history;
    for (const uint8_t write : readBackQueue(history)) {
      Command read = history.commands[write];
      read.kind = Kind::readBack;
      read.ending = Ending::good;
      append(one, read);
      if (!(bound_.readBackIsLast ? give(one) : withLastRead(one))) {
        return false;
      }
    }
    return true;
  }

  template <typename Give>
  bool eachRange(Give giveOne) {
    for (uint8_t first = 0; first < bound_.blocks; ++first) {
      for (uint8_t blocks = 1; first + blocks <= bound_.blocks; ++blocks) {
        const bool whole = blocks == bound_.blocks;
        if ((whole || bound_.partialReads) && !giveOne(Command{Kind::look, Ending::good, first, blocks, 1})) {
          return false;
        }
      }
    }
    return true;
  }

  const Bound& bound_;
  const std::function<bool(const History&)>& judge_;
  uint64_t count_ = 0;
};

}  // namespace

uint64_t writeChoices(const Bound& bound) { return choicesOf(bound).size(); }

uint64_t forEachHistory(const Bound& bound, const std::function<bool(const History&)>& judge) {
  const std::vector<Command> choices = choicesOf(bound);
  const bool readAmong = bound.earlierRead || (bound.readAmongWrites && !bound.readBacks);
  const Interleavings orders(bound.writes, readAmong);
  const Command wholeRead{Kind::look, Ending::good, 0, bound.blocks, 1};
  Reads reads(bound, judge);
  History history;
  history.base = bound.base;
  history.blocks = bound.blocks;
  uint64_t selections = 1;
  for (uint8_t i = 0; i < bound.writes; ++i) {
    selections *= choices.size();
  }
  for (uint64_t selection = 0; selection < selections; ++selection) {
    history.commands.clear();
    for (uint64_t rest = selection; history.commands.size() < bound.writes; rest /= choices.size()) {
      history.commands.push_back(choices[rest % choices.size()]);
    }
    if (readAmong) {
      history.commands.push_back(wholeRead);
    }
    for (const Events& events : orders.all()) {
      // The judged read would be that of a history with fewer writes.
      if (readAmong && !bound.earlierRead && leavesAWriteBehind(events, bound.writes)) {
        continue;
      }
      history.events = events;
      if (!reads.judge(history)) {
        return reads.count();
      }
    }
  }
  return reads.count();
}

namespace {

class RandomHistory {
 public:
  explicit RandomHistory(std::mt19937_64& random) : random_(random) {
    history_.base = static_cast<Base>(below(3));
    history_.blocks = static_cast<uint8_t>(2 + below(3));
    writesLeft_ = static_cast<uint32_t>(3 + below(2));
    // More at once make more states than the oracle can walk through in a moment.
    mostOpenWrites_ = history_.blocks == 2 ? 3 : 2;
    readsLeft_ = static_cast<uint32_t>(below(3));
  }

  History make() {
    while (writesLeft_ != 0) {
      step();
    }
    // The judged read: at once, or when some or all writes have ended.
    const auto stillOpen = static_cast<std::ptrdiff_t>(below(open_.size() + 1));
    while (static_cast<std::ptrdiff_t>(open_.size()) > stillOpen) {
      endOne();
    }
    issue(read());
    while (!open_.empty()) {
      endOne();
    }
    return history_;
  }

 private:
  uint64_t below(uint64_t limit) { return random_() % limit; }

  void step() {
    const uint64_t choice = below(5);
    if (choice < 2 && openWrites() < mostOpenWrites_) {
      --writesLeft_;
      issue(write());
    } else if (choice == 2 && readsLeft_ != 0 && !history_.commands.empty()) {
      --readsLeft_;
      if (below(2) == 0 && !queue_.empty()) {
        issueReadBack();
      } else {
        issue(read());
      }
    } else if (!open_.empty()) {
      endOne();
    }
  }

  void issue(const Command& command) {
    const auto number = static_cast<uint8_t>(history_.commands.size());
    history_.commands.push_back(command);
    history_.events.push_back({number, false});
    open_.push_back(number);
  }

  void issueReadBack() {
    Command command = history_.commands[queue_.front()];
    queue_.erase(queue_.begin());
    command.kind = Kind::readBack;
    command.ending = Ending::good;
    issue(command);
  }

  void endOne() {
    const auto place = open_.begin() + static_cast<std::ptrdiff_t>(below(open_.size()));
    const uint8_t number = *place;
    open_.erase(place);
    history_.events.push_back({number, true});
    const Command& command = history_.commands[number];
    if (!isRead(command.kind) && (command.ending == Ending::good || command.kind == Kind::atomicWrite)) {
      queue_.push_back(number);
    }
  }

  uint32_t openWrites() const {
    return static_cast<uint32_t>(std::count_if(
        open_.begin(), open_.end(), [this](uint8_t number) { return !isRead(history_.commands[number].kind); }));
  }

  Command write() {
    Command command = range(below(3) == 0);
    const uint64_t kind = below(6);
    command.kind = kind < 3 ? Kind::atomicWrite : kind < 5 ? Kind::write : Kind::trim;
    command.ending = below(2) == 0 ? Ending::good : Ending::failed;
    command.bound = static_cast<uint8_t>(below(3) == 0 ? 1 + below(command.blocks) : command.blocks);
    return command;
  }

  Command read() {
    Command command = range(below(3) != 0);
    command.kind = Kind::look;
    return command;
  }

  Command range(bool whole) {
    Command command;
    command.first = static_cast<uint8_t>(whole ? 0 : below(history_.blocks));
    const auto longest = static_cast<uint64_t>(history_.blocks - command.first);
    command.blocks = static_cast<uint8_t>(whole ? longest : 1 + below(longest));
    return command;
  }

  std::mt19937_64& random_;
  History history_;
  std::vector<uint8_t> open_;
  std::vector<uint8_t> queue_;  ///< finished writes that the agent still reads back
  uint32_t writesLeft_ = 0;
  uint32_t mostOpenWrites_ = 0;
  uint32_t readsLeft_ = 0;
};

}  // namespace

History randomHistory(std::mt19937_64& random) { return RandomHistory(random).make(); }

}  // namespace oracletest
