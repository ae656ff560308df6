#include "host/run/ZoneWriter.h"

#include <algorithm>
#include <cassert>

namespace corvane::host {

ZoneWriter::ZoneWriter(const ZoneMap& zones, uint32_t minBlocks, uint32_t maxBlocks, uint64_t seed)
    : zones_(zones),
      minBlocks_(minBlocks),
      maxBlocks_(maxBlocks),
      // Of few zones some must stay full for a while, or nothing lives long enough to be read back.
      mostOpen_(std::clamp(zones.count() / 2, 1U, mostOpen)),
      random_(seed),
      closed_(zones.count()),
      withRoom_(zones.count()) {
  pointers_.reserve(zones_.count());
  for (uint32_t zone = 0; zone < zones_.count(); ++zone) {
    pointers_.push_back(zones_.first(zone));
  }
  open_.reserve(mostOpen_);
  updateOpen();
}

const ZonePosition& ZoneWriter::next() {
  assert(hasRoom());
  if (!next_) {
    const uint32_t zone = open_[turn_];
    const uint64_t lba = pointers_[zone];
    const uint64_t room = zones_.end(zone) - lba;
    const uint64_t wanted = random_.between(minBlocks_, maxBlocks_);
    next_ = ZonePosition{.lba = lba, .blocks = static_cast<uint32_t>(std::min(room, wanted))};
  }
  return *next_;
}

void ZoneWriter::used() {
  const ZonePosition written = next();
  const uint32_t zone = open_[turn_];
  turn_ = (turn_ + 1) % static_cast<uint32_t>(open_.size());
  movePointer(zone, written.lba + written.blocks);
}

void ZoneWriter::emptied(uint32_t zone) {
  closed_[zone] = false;
  movePointer(zone, zones_.first(zone));
}

void ZoneWriter::closeZoneOf(uint64_t lba) {
  const uint32_t zone = zones_.zoneOf(lba);
  closed_[zone] = true;
  movePointer(zone, zones_.end(zone));
}

void ZoneWriter::takeBackTo(uint64_t lba) {
  const uint32_t zone = zones_.zoneOf(lba);
  if (!closed_[zone]) {
    movePointer(zone, std::min(pointers_[zone], lba));
  }
}

void ZoneWriter::movePointer(uint32_t zone, uint64_t to) {
  const bool wasFull = isFull(zone);
  pointers_[zone] = to;
  next_.reset();
  if (wasFull != isFull(zone)) {
    withRoom_ += wasFull ? 1U : -1U;
    updateOpen();
  }
}

void ZoneWriter::updateOpen() {
  for (size_t at = open_.size(); at-- > 0;) {
    if (isFull(open_[at])) {
      open_.erase(open_.begin() + static_cast<std::ptrdiff_t>(at));
      turn_ -= turn_ > at ? 1U : 0U;
    }
  }
  while (open_.size() < std::min(mostOpen_, withRoom_)) {
    const uint32_t zone = search_;
    search_ = (search_ + 1) % zones_.count();
    if (!isFull(zone) && std::find(open_.begin(), open_.end(), zone) == open_.end()) {
      open_.push_back(zone);
    }
  }
  turn_ = turn_ < open_.size() ? turn_ : 0;
}

}  // namespace corvane::host
