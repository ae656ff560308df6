#include "tests/oracle/Differences.h"

#include <algorithm>
#include <bit>
#include <stdexcept>

#include "tests/oracle/DriveOracle.h"

namespace oracletest {

namespace {

bool contains(const std::vector<Image>& images, Image image) {
  return std::binary_search(images.begin(), images.end(), image);
}

/// The history without its other reads. Only what a read ahead of an atomic write found is remembered, block by block,
/// and for reads that are issued later.
History withoutEarlierReads(const History& history, uint8_t read) {
  History part = history;
  for (uint8_t i = 0; i < history.count(); ++i) {
    if (history.commands[i].kind == Kind::readAhead && history.issuedBefore(i, read)) {
      part.commands[i].kind = Kind::found;
    }
  }
  std::erase_if(part.events,
                [&](const Event& event) { return event.command != read && isRead(part.commands[event.command].kind); });
  return part;
}

/// What stands on a block before a read is issued, seen from above: writes by the order of issue, newest first.
std::vector<uint8_t> writesBelow(const History& history, uint8_t read, uint32_t block) {
  std::vector<uint8_t> writes;
  for (const Event& event : history.events) {
    if (event.command == read) {
      break;
    }
    const Command& command = history.commands[event.command];
    if (!event.end && !isRead(command.kind) && command.covers(block)) {
      writes.insert(writes.begin(), event.command);
    }
  }
  return writes;
}

bool isFailedAtomic(const Command& command) {
  return command.kind == Kind::atomicWrite && command.ending == Ending::failed;
}

/// Whether the newest write that is not a failed atomic one is a failed plain one, and the block does not show one of
/// those above it.
bool failedWriteDecides(const History& history, uint8_t read, uint32_t block, Value value) {
  for (const uint8_t write : writesBelow(history, read, block)) {
    const Command& command = history.commands[write];
    if (!isFailedAtomic(command)) {
      return command.ending == Ending::failed;
    }
    if (history.valueOf(write) == value) {
      return false;
    }
  }
  return false;
}

bool isNeverWritten(const History& history, uint8_t read, uint32_t block) {
  return history.base == Base::unknown && writesBelow(history, read, block).empty();
}

/// Whether, when the read is issued, nobody waits for the block any more: every write over it is paid off.
bool isPaidOff(const History& history, uint8_t read, uint32_t block) {
  if (history.base != Base::unknown) {
    return false;
  }
  // The agent's queue of finished writes, and the blocks' open ends.
  std::vector<uint8_t> queue;
  std::vector<uint8_t> open;
  for (const Event& event : history.events) {
    if (event.command == read) {
      break;
    }
    const Command& command = history.commands[event.command];
    if (command.kind == Kind::readBack && !event.end) {
      queue.erase(queue.begin());
    }
    if (!event.end) {
      open.push_back(event.command);
      continue;
    }
    std::erase(open, event.command);
    if (!isRead(command.kind) && (command.ending == Ending::good || command.kind == Kind::atomicWrite)) {
      queue.push_back(event.command);
    }
  }
  const auto covers = [&](uint8_t command) { return history.commands[command].covers(block); };
  return std::none_of(queue.begin(), queue.end(), covers) && std::none_of(open.begin(), open.end(), covers) &&
         !writesBelow(history, read, block).empty();
}

/// Whether some of the images show this on the block.
bool mayShow(const std::vector<Image>& images, uint32_t block, Value value) {
  return std::any_of(images.begin(), images.end(), [=](Image image) { return valueAt(image, block) == value; });
}

/// Whether the block shows zeros, or what a read ahead of an atomic write found there.
bool isUnstamped(const History& history, uint32_t block, Value value) {
  if (value == zeroes) {
    return true;
  }
  for (uint8_t i = 0; i < history.count(); ++i) {
    const Command& command = history.commands[i];
    if (command.kind == Kind::readAhead && command.covers(block) && valueAt(history.shown[i], block) == value) {
      return true;
    }
  }
  return false;
}

}  // namespace

const char* nameOf(Rule rule) {
  constexpr std::array names = {"issue order",      "failed write",      "never written",
                                "read back before", "unstamped content", "earlier reads"};
  return names[static_cast<std::size_t>(rule)];
}

Comparison::Comparison(const History& history, uint8_t read)
    : history_(history),
      read_(read),
      possible_(possibleImages(history, read, Order::any)),
      asIssued_(possibleImages(history, read, Order::asIssued)) {}

bool Comparison::possible(Image image) const { return contains(possible_, image); }
bool Comparison::possibleAsIssued(Image image) const { return contains(asIssued_, image); }

const std::vector<Image>& Comparison::possibleWithoutEarlierReads() {
  if (!forgetful_) {
    forgetful_ = possibleImages(withoutEarlierReads(history_, read_), read_, Order::any);
  }
  return *forgetful_;
}

uint32_t Comparison::freeBlocks(Rule rule, const std::vector<Image>& images, Image image) const {
  uint32_t blocks = 0;
  const Command& read = history_.commands[read_];
  for (uint32_t block = read.first; block < read.end(); ++block) {
    const Value value = valueAt(image, block);
    const bool isFree =
        (rule == Rule::failedWrite && failedWriteDecides(history_, read_, block, value)) ||
        (rule == Rule::neverWritten && isNeverWritten(history_, read_, block)) ||
        (rule == Rule::readBack && isPaidOff(history_, read_, block)) ||
        (rule == Rule::unstampedContent && isUnstamped(history_, block, value) && mayShow(images, block, value));
    blocks |= isFree ? 1U << block : 0U;
  }
  return blocks;
}

bool Comparison::agreesUpTo(uint32_t freeBlocks, const std::vector<Image>& images, Image image) const {
  Image fixed = 0;
  for (uint32_t block = 0; block < maxBlocks; ++block) {
    fixed = (freeBlocks >> block & 1) != 0 ? fixed : withValue(fixed, block, 15);
  }
  return std::any_of(images.begin(), images.end(), [&](Image other) { return ((other ^ image) & fixed) == 0; });
}

bool Comparison::isPossibleUnder(const Rules& rules, Image image) {
  const bool forgets = rules.back() == Rule::earlierReads;
  const std::vector<Image>& images = forgets ? possibleWithoutEarlierReads() : possible_;
  uint32_t freed = 0;
  for (const Rule rule : rules) {
    freed |= freeBlocks(rule, images, image);
  }
  return agreesUpTo(freed, images, image);
}

Rules Comparison::explain(Image image, bool accepted) {
  if (accepted == possible(image)) {
    return {};
  }
  if (!accepted) {
    if (!possibleAsIssued(image)) {
      return {Rule::issueOrder};
    }
    throw std::domain_error("rejected: " + describe(history_, read_, image));
  }
  constexpr std::array looser = {Rule::failedWrite, Rule::neverWritten, Rule::readBack, Rule::unstampedContent,
                                 Rule::earlierReads};
  for (int size = 1; size <= static_cast<int>(looser.size()); ++size) {
    for (uint32_t chosen = 1; chosen < 1U << looser.size(); ++chosen) {
      Rules rules;
      for (std::size_t i = 0; i < looser.size(); ++i) {
        if ((chosen >> i & 1) != 0) {
          rules.push_back(looser[i]);
        }
      }
      if (std::popcount(chosen) == size && isPossibleUnder(rules, image)) {
        return rules;
      }
    }
  }
  throw std::domain_error("accepted: " + describe(history_, read_, image));
}

std::vector<Image> conceivableImages(const History& history, uint8_t read) {
  const Command& judged = history.commands[read];
  std::vector<Image> images = {0};
  std::vector<Image> withForeign;
  for (uint32_t block = judged.first; block < judged.end(); ++block) {
    std::vector<Value> values = {history.startValue()};
    for (uint8_t i = 0; i < history.count(); ++i) {
      const Command& command = history.commands[i];
      const bool inTime = history.position(i, false) < history.position(read, true);
      if (!isRead(command.kind) && command.covers(block) && inTime &&
          std::find(values.begin(), values.end(), history.valueOf(i)) == values.end()) {
        values.push_back(history.valueOf(i));
      }
    }
    std::vector<Image> longer;
    std::vector<Image> longerWithForeign;
    for (const Image image : images) {
      longerWithForeign.push_back(withValue(image, block, foreign));
      for (const Value value : values) {
        longer.push_back(withValue(image, block, value));
      }
    }
    for (const Image image : withForeign) {
      for (const Value value : values) {
        longerWithForeign.push_back(withValue(image, block, value));
      }
    }
    images = std::move(longer);
    withForeign = std::move(longerWithForeign);
  }
  images.insert(images.end(), withForeign.begin(), withForeign.end());
  return images;
}

}  // namespace oracletest
