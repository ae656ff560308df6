// What a step is offered: the next command's place, the finished command, what happened outside.

#include <algorithm>

#include "Conditions.h"
#include "DriveRun.h"

namespace randomhost {

namespace {

constexpr uint32_t longestCommand = 3000;
constexpr uint32_t none = 0xFFFFFFFF;
constexpr uint32_t aborted = 64;
constexpr uint32_t checkCondition = 2;

/// Fixed-format sense data of 22 bytes.
std::vector<uint8_t> fixedSense(uint8_t key, uint8_t code, uint8_t qualifier) {
  std::vector<uint8_t> sense(22, 0);
  sense[0] = 0x70;
  sense[2] = key;
  sense[7] = 14;
  sense[12] = code;
  sense[13] = qualifier;
  return sense;
}

}  // namespace

void DriveRun::offerCommand(Offer& offer) {
  offer.lba = plan_.firstLba + dice_.below(plan_.lbas);
  offer.xferLength = static_cast<uint32_t>(1 + dice_.below(plan_.longest));
  offer.atomicBound = static_cast<uint32_t>(1 + dice_.below(plan_.longest));
  offer.minLba = plan_.minLba;
  offer.maxLba = plan_.maxLba;
  if (does(Misdeed::oddLength, 6)) {
    offer.xferLength = dice_.of<uint32_t>({0, config_.bucketCount, config_.bucketCount + 1, config_.bucketCount - 1,
                                           static_cast<uint32_t>(dice_.below(2000))});
    offer.xferLength = std::min(offer.xferLength, longestCommand);
  }
  if (does(Misdeed::oddLba, 8)) {
    // The last command that fits below 2^64; a read that slides may be as long as any other command.
    const uint64_t blocks = std::max(config_.slideReads ? longestCommand : offer.xferLength, 1U) * stride();
    offer.lba = ~uint64_t{0} - blocks - dice_.below(8);
  }
  if (does(Misdeed::oddBound, 6)) {
    offer.atomicBound = dice_.of<uint32_t>({0, 0xFFFFFFFF, 100});
  }
  offer.hostManaged = !plan_.lawful && optional() && dice_.oneIn(6);
  offer.writeLba = plan_.firstLba + dice_.below(plan_.lbas);
  offer.writeXferLength = static_cast<uint32_t>(1 + dice_.below(plan_.longest));
}

void DriveRun::offerConditions(Offer& offer) {
  using vdl::agent::configured;
  // Bits of other steps of the test.
  uint64_t state = dice_.any() & ~uint64_t{0x1FF};
  const auto pick = [&](std::initializer_list<uint64_t> kinds) {
    std::vector<uint64_t> usable;
    for (const uint64_t kind : kinds) {
      if (kind != 0) {
        usable.push_back(kind);
      }
    }
    return usable.empty() ? 0 : usable[dice_.below(usable.size())];
  };
  state |=
      pick({configured(config_.readCondition) ? bit::read : 0, configured(config_.verifyCondition) ? bit::verify : 0});
  state |= pick(
      {configured(config_.writeCondition) ? bit::write : 0, configured(config_.writeAtomicCondition) ? bit::atomic : 0,
       configured(config_.writeSameCondition) ? bit::same : 0, configured(config_.trimCondition) ? bit::trim : 0});
  state |= dice_.oneIn(3) && configured(config_.e2eCondition) ? bit::e2e : 0;
  if (does(Misdeed::oddConditions, 10)) {
    state = dice_.any();
  }
  offer.conditions = state;
}

void DriveRun::offerOutsideEvents(Offer& offer) {
  const bool kept = optional() && started_;
  if (optional()) {
    powerCut_ = powerCut_ || does(Misdeed::cutsPower, 20);
    offer.powerWasCut = powerCut_;
  }
  const bool syncIsOut = data().syncIssued;
  offer.deviceReset = does(Misdeed::resets, 25) && !(plan_.lawful && syncIsOut);
  const bool listens = kept && (plan_.maps.zoneWriters != 0 || plan_.maps.rangeWriters != 0);
  offer.mutexFails = listens && does(Misdeed::mutexFails, 30);
  framework_.queue("CSZoneReset").mutexFails = offer.mutexFails;
  framework_.queue("CVNInvalidateRanges").mutexFails = offer.mutexFails;
  offerRanges(offer);
}

void DriveRun::offerRanges(Offer& offer) {
  const auto draw = [&](Misdeed misdeed, const char* name, bool heard, std::vector<vdl::LBARange>& heardRanges) {
    vdl::LBARangeQueue::Impl& queue = framework_.queue(name);
    while (does(misdeed, 12) && queue.ranges.size() < 20) {
      const uint64_t first = plan_.firstLba + dice_.below(plan_.lbas);
      vdl::LBARange range{first, first + 1 + dice_.below(32)};
      if (plan_.lawful) {
        // Only what nobody uses at the moment, and with the old content gone.
        if (overlapsAnySent(range.first, range.end + 1)) {
          break;
        }
        for (uint64_t lba = range.first; lba <= range.end; ++lba) {
          medium_[lba].assign(sector(), 0xA5);
        }
      } else {
        range = dice_.of<vdl::LBARange>(
            {range, range, {first, first}, {first, first - 1}, {0, ~uint64_t{0}}, {dice_.any(), dice_.any()}});
      }
      queue.ranges.push_back(range);
    }
    if (heard && !offer.mutexFails) {
      heardRanges.assign(queue.ranges.begin(), queue.ranges.end());
    }
  };
  draw(Misdeed::resetsZones, "CSZoneReset", optional() && plan_.maps.zoneWriters != 0, offer.zoneResets);
  draw(Misdeed::invalidatesRanges, "CVNInvalidateRanges", optional() && plan_.maps.rangeWriters != 0,
       offer.invalidations);
}

void DriveRun::offerTag(Offer& offer) {
  framework_.tags.forced = does(Misdeed::oddTag, 8);
  framework_.tags.forcedPeek = dice_.of<uint32_t>({none, static_cast<uint32_t>(dice_.below(plan_.queueDepth)),
                                                   plan_.queueDepth, 1023, static_cast<uint32_t>(dice_.below(1024))});
  offer.nextTag = framework_.tagQueue.peekNextFreeTag();
}

/// The command that finishes next, or nothing while the drive takes its time.
std::optional<size_t> DriveRun::chooseFinished() {
  const bool mustWait = framework_.tags.free.empty();
  if (sent_.empty() || (!mustWait && dice_.oneIn(2))) {
    return std::nullopt;
  }
  size_t chosen = dice_.below(sent_.size());
  if (does(Misdeed::completesOutOfOrder, 2)) {
    return chosen;
  }
  // The earliest that the chosen one has to wait for, if there is one. A flush waits for all and all wait for it.
  for (size_t i = 0; i < chosen; ++i) {
    const bool flush = sent_[i].type == Type::SyncIssued || sent_[chosen].type == Type::SyncIssued;
    if (flush || overlaps(sent_[i], sent_[chosen])) {
      chosen = i;
      i = ~size_t{0};
    }
  }
  return chosen;
}

void DriveRun::offerCompletion(Offer& offer) {
  offer.deviceInterface = plan_.does(Misdeed::sharesNoData) ? 1 : 0;
  if (does(Misdeed::completesUnknownTag, 15)) {
    offer.tag = dice_.of<uint32_t>(
        {static_cast<uint32_t>(dice_.below(1024)), plan_.queueDepth, 255, 1023, 1024, 70000, 0xFFFFFFFE});
    offer.status = dice_.of<uint32_t>({0, checkCondition, aborted});
    offerSense(offer);
    return;
  }
  if (!finished_.empty() && does(Misdeed::completesTwice, 10)) {
    offerFinished(offer, finished_[dice_.below(finished_.size())]);
    return;
  }
  const std::optional<size_t> chosen = chooseFinished();
  if (!chosen) {
    if (does(Misdeed::ordersOldStatus, 5)) {
      offer.tag = 0;
      offer.status = 0;
    }
    return;
  }
  const Sent sent = sent_[*chosen];
  sent_.erase(sent_.begin() + static_cast<std::ptrdiff_t>(*chosen));
  giveTagBack(sent.tag);
  if (does(Misdeed::neverCompletes, 8)) {
    return;
  }
  offerFinished(offer, sent);
  finished_.push_back(sent);
  if (finished_.size() > 10) {
    finished_.erase(finished_.begin());
  }
}

void DriveRun::offerFinished(Offer& offer, const Sent& sent) {
  const bool reads = sent.type == Type::ReadIssued || sent.type == Type::PreReadIssued;
  const bool verifies = sent.type == Type::VerifyIssued;
  const bool writes = !reads && !verifies && sent.type != Type::SyncIssued;
  offer.tag = sent.tag;
  offer.status = 0;
  if (verifies && sent.differs) {
    offer.status = checkCondition;
    offer.sense = fixedSense(0x0E, 0x1D, 0);
  }
  if ((writes && does(Misdeed::abortsWrites, sent.torn ? 2 : 8)) || (!writes && does(Misdeed::abortsReads, 8))) {
    offer.status = aborted;
    offer.sense.clear();
  } else if (does(Misdeed::checkCondition, 6)) {
    offer.status = checkCondition;
    offerSense(offer);
  } else if (does(Misdeed::oddStatus, 10)) {
    offer.status = dice_.of<uint32_t>({0x08, 0x18, 0x28, 0x40, 0x04, 0xFF, 0xFFFFFFFE, 0xFFFFFFFF});
    offerSense(offer);
  }
  if (reads) {
    offerReadData(offer, sent);
  }
}

void DriveRun::offerReadData(Offer& offer, const Sent& sent) {
  offer.readDataIsValid = true;
  offer.dataShown = optional();
  offer.data = sent.data;
  if (does(Misdeed::withholdsReadData, 8)) {
    offer.dataShown = offer.dataShown && dice_.oneIn(2);
    offer.readDataIsValid = offer.dataShown ? dice_.oneIn(2) : true;
  }
  if (does(Misdeed::wrongData, 10)) {
    for (uint64_t flips = dice_.below(3); !offer.data.empty() && flips-- > 0;) {
      offer.data[dice_.below(offer.data.size())] ^= static_cast<uint8_t>(1 + dice_.below(255));
    }
  }
  if (does(Misdeed::foreignData, 12)) {
    offer.data = readMedium(plan_.firstLba + dice_.below(plan_.lbas), sent.length);
  }
  if (does(Misdeed::tornData, 12)) {
    const std::vector<uint8_t> later = readMedium(sent.lba, sent.length);
    const auto from = static_cast<std::ptrdiff_t>(sector() * dice_.below(sent.length + 1ULL));
    std::copy(later.begin() + from, later.end(), offer.data.begin() + from);
  }
  if (does(Misdeed::shortReadData, 10)) {
    offer.data.resize(dice_.below(offer.data.size() + 1));
  } else if (does(Misdeed::longReadData, 10)) {
    offer.data.resize(dice_.oneIn(2) ? sent.length * (sector() + 8) : offer.data.size() + dice_.below(3000), 0x3C);
  }
}

void DriveRun::offerSense(Offer& offer) { offer.sense = drawSense(); }

std::vector<uint8_t> DriveRun::drawSense() {
  std::vector<uint8_t> sense = fixedSense(static_cast<uint8_t>(dice_.of<uint64_t>({1, 3, 3, 4, 0x0E, dice_.below(16)})),
                                          static_cast<uint8_t>(dice_.any()), static_cast<uint8_t>(dice_.any()));
  const uint64_t place = plan_.firstLba + dice_.below(plan_.lbas);
  const auto unit = static_cast<uint16_t>(dice_.of<uint64_t>({0xF7C3, 0xF815, 0xF510, 0xF827, dice_.any()}));
  if (dice_.oneIn(3)) {
    // Descriptors: information, the vendor's, and one that nobody knows.
    sense.assign({static_cast<uint8_t>(0x72 + dice_.below(2)), sense[2], sense[12], sense[13], 0, 0, 0, 20});
    sense.insert(sense.end(), {0, 0x0A, static_cast<uint8_t>(dice_.oneIn(2) ? 0x80 : 0), 0});
    for (int shift = 56; shift >= 0; shift -= 8) {
      sense.push_back(static_cast<uint8_t>((dice_.oneIn(8) ? ~uint64_t{0} : place) >> shift));
    }
    sense.insert(sense.end(), {0x80, 2, static_cast<uint8_t>(unit >> 8), static_cast<uint8_t>(unit), 0x55, 2, 1, 2});
    sense[7] = static_cast<uint8_t>(sense.size() - 8);
  } else {
    sense[0] = static_cast<uint8_t>(0x70 + dice_.below(2) + (dice_.oneIn(2) ? 0x80 : 0));
    for (size_t byte = 0; byte < 4; ++byte) {
      sense[3 + byte] = static_cast<uint8_t>(place >> (24 - 8 * byte));
    }
    sense[20] = static_cast<uint8_t>(unit >> 8);
    sense[21] = static_cast<uint8_t>(unit);
  }
  if (does(Misdeed::brokenSense, 2)) {
    switch (dice_.below(4)) {
      case 0:
        sense.clear();
        break;
      case 1:
        sense[0] = static_cast<uint8_t>(dice_.any());
        break;
      case 2:
        for (uint8_t& byte : sense) {
          byte = static_cast<uint8_t>(dice_.any());
        }
        break;
      default:
        // A drive cuts what does not fit and leaves the length of the rest as it is.
        sense.resize(dice_.below(sense.size()));
    }
  }
  return sense;
}

}  // namespace randomhost
