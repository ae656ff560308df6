#include <algorithm>
#include <cstring>
#include <limits>
#include <span>
#include <utility>

#include "host/drive/SenseData.h"
#include "host/fault/Damage.h"
#include "host/fault/FaultyDrive.h"

namespace corvane::host {
namespace {

constexpr uint64_t overtakingReach = 128;  ///< commands within which a read may overtake a write
constexpr size_t mostLostBlocks = 64;      ///< of one power cut
constexpr size_t rememberedDeliveries = 64;

bool isOfItsRange(const DriveCommand& look, const Injection& injection) {
  return look.kind == CommandKind::read && look.lba == injection.lba && look.blocks == injection.blocks;
}

bool isUnreadable(const Injection& injection, uint64_t lba) {
  return std::ranges::any_of(injection.altered,
                             [lba](const AlteredBlock& block) { return block.lba == lba && block.is.empty(); });
}

std::vector<uint8_t> bytesOf(std::span<const uint8_t> sector) { return {sector.begin(), sector.end()}; }

}  // namespace

bool FaultyDrive::strikes(const Slot& slot) {
  if (spec_.drive != 0 && spec_.drive != ledger_.drive() + 1) {
    return false;
  }
  // One damaged block is enough to lie about, and old content is prepared for one read at a time.
  if (engaged()) {
    return false;
  }
  if (spec_.what == FaultClass::crossTalk && ledger_.drive() == 0) {
    return false;
  }
  return trigger_.fires(slot.number);
}

void FaultyDrive::strike(Slot& slot, DriveCompletion& out) {
  if (engaged()) {
    // By a command that was outstanding together with this one.
    trigger_.takeBack();
    remember(slot.command);
    return;
  }
  switch (spec_.what) {
    case FaultClass::bitFlipRead:
      flipReadBit(slot);
      break;
    case FaultClass::verifyFalseAlarm:
      raiseFalseAlarm(slot, out);
      break;
    case FaultClass::lyingFlush:
      liedFlush_ = injectionOf(slot);
      break;
    case FaultClass::staleRead:
    case FaultClass::readOvertakes:
      prepareOldContent(slot);
      break;
    default:
      strikeMedium(slot, out);
      break;
  }
}

Injection FaultyDrive::injectionOf(const Slot& slot) const {
  Injection injection;
  injection.what = spec_.what;
  injection.command = slot.number;
  injection.kind = slot.command.kind;
  injection.lba = slot.command.lba;
  injection.blocks = slot.command.blocks;
  injection.lbaStep = slot.command.lbaStep;
  return injection;
}

void FaultyDrive::strikeMedium(Slot& slot, DriveCompletion& out) {
  const DriveCommand& command = slot.command;
  if (spec_.what == FaultClass::crossTalk && exchange_ != nullptr) {
    otherData_ = exchange_->take();
  }
  const DamageInput input{.what = spec_.what,
                          .command = command,
                          .geometry = geometry(),
                          .before = slot.before,
                          .after = slot.after,
                          .otherData = otherData_,
                          .recent = recent_};
  Injection injection = injectionOf(slot);
  std::optional<Damage> damage = damageOf(input, random_);
  remember(command);
  // These two show only where somebody waits for the old content anyway.
  bool somebodyLooks = spec_.what != FaultClass::trimTooFar && spec_.what != FaultClass::invalidateIgnored;
  if (damage) {
    for (uint64_t lba = slot.after.first(); lba < slot.after.end(); ++lba) {
      const bool unreadable = damage->unreadable.contains(lba);
      if (unreadable || !std::ranges::equal(damage->content.at(lba), slot.after.at(lba))) {
        somebodyLooks = somebodyLooks || live_.contains(lba) || slot.recognisable.contains(lba);
        injection.altered.push_back({.lba = lba,
                                     .was = bytesOf(slot.after.at(lba)),
                                     .is = unreadable ? std::vector<uint8_t>() : bytesOf(damage->content.at(lba))});
      }
    }
  }
  if (injection.altered.empty() || !somebodyLooks) {
    trigger_.takeBack();
    return;
  }
  injection.note = damage->note;
  recognisedOld_ = slot.recognisable;
  if (spec_.what == FaultClass::atomicTear) {
    tornNew_ = damage->kept;
    injection.blindness = "the old content is known by its hash only, or unknown, or zeros";
  }
  const FaultLedger::Id id = enter(std::move(injection));
  if (spec_.what == FaultClass::verifyAlwaysEqual) {
    lyingVerifies_ = id;
  } else if (spec_.what == FaultClass::atomicTear || (spec_.what == FaultClass::writeSplice && random_.below(2) == 0)) {
    out.status = scsi_status::aborted;
    out.senseBytes = 0;
  } else if (spec_.what == FaultClass::writeSplice) {
    setSense(out, sense::internalFailure);
  }
  if (!isCarriedOut(out)) {
    live_.failed(command);
  }
}

void FaultyDrive::prepareOldContent(Slot& slot) {
  const DriveCommand& command = slot.command;
  remember(command);
  Prepared prepared;
  prepared.injection = injectionOf(slot);
  prepared.lastCommand =
      spec_.what == FaultClass::readOvertakes ? slot.number + overtakingReach : std::numeric_limits<uint64_t>::max();
  for (uint64_t lba = command.lba; lba < command.endLba(); lba += command.lbaStep) {
    const auto before = slot.before.at(lba);
    if (std::ranges::equal(before, slot.after.at(lba)) || alterations_.find(lba) != nullptr) {
      continue;
    }
    alterations_.set(lba, {.content = bytesOf(before), .life = Alterations::Life::once});
    prepared.injection.altered.push_back({.lba = lba, .was = bytesOf(slot.after.at(lba)), .is = bytesOf(before)});
  }
  prepared.blocksLeft = prepared.injection.altered.size();
  if (prepared.blocksLeft == 0) {
    trigger_.takeBack();
    return;
  }
  prepared_ = std::move(prepared);
}

void FaultyDrive::dropPrepared() {
  if (!prepared_->id) {
    trigger_.takeBack();
  }
  for (const AlteredBlock& block : prepared_->injection.altered) {
    const Alterations::Entry* altered = alterations_.find(block.lba);
    if (altered != nullptr && altered->life == Alterations::Life::once) {
      alterations_.erase(block.lba);
    }
  }
  prepared_.reset();
}

bool FaultyDrive::show(const Slot& slot, uint64_t lba, uint8_t* sector) {
  Alterations::Entry* altered = alterations_.find(lba);
  if (altered == nullptr) {
    return true;
  }
  if (altered->life == Alterations::Life::once) {
    if (!prepared_->id) {
      prepared_->id = ledger_.add(prepared_->injection);
    }
    altered->injection = *prepared_->id;
  }
  noteDelivery(slot, lba, altered->injection);
  if (altered->content.empty()) {
    return false;
  }
  std::ranges::copy(altered->content, sector);
  if (altered->life == Alterations::Life::once) {
    alterations_.erase(lba);
    if (--prepared_->blocksLeft == 0) {
      dropPrepared();
    }
  }
  return true;
}

bool FaultyDrive::mustBeNoticed(const DriveCommand& look, uint64_t lba, const Injection& injection) const {
  switch (injection.what) {
    case FaultClass::writeSplice:
      // Nobody knows the content of a failed command's blocks; that they cannot be read is for the read to notice that
      // goes to their very range.
      return isUnreadable(injection, lba) && isOfItsRange(look, injection);
    case FaultClass::atomicTear:
      return isOfItsRange(look, injection) && !tornNew_.empty();
    case FaultClass::zoneResetIgnored:
      return true;
    case FaultClass::invalidateIgnored:
      return live_.containsInvalidated(lba) && recognisedOld_.contains(lba);
    default:
      return live_.contains(lba) && !(look.kind == CommandKind::read && live_.mayOnlyProbe(look));
  }
}

void FaultyDrive::noteDelivery(const Slot& slot, uint64_t lba, FaultLedger::Id id) {
  Injection& injection = ledger_.at(id);
  const DriveCommand& look = slot.command;
  bool visible = mustBeNoticed(look, lba, injection);
  if (visible && injection.what == FaultClass::atomicTear && !recognisedOld_.contains(lba)) {
    ++injection.blind;
    visible = false;
  }
  ++injection.delivered;
  injection.visible += visible ? 1U : 0U;
  const bool partly = visible && live_.mayBeGivenUp(lba);
  injection.visiblePartly += partly ? 1U : 0U;
  injection.visibleVerify += visible && look.kind == CommandKind::verify ? 1U : 0U;
  if (injection.firstDelivery == 0) {
    injection.firstDelivery = slot.number;
  }
  if (look.kind != CommandKind::read) {
    return;
  }
  if (deliveries_.size() == rememberedDeliveries) {
    deliveries_.erase(deliveries_.begin());
  }
  deliveries_.push_back(
      {.injection = id, .lba = look.lba, .blocks = look.blocks, .visible = visible, .partly = partly});
}

void FaultyDrive::notePreRead(const DriveCommand& atomicWrite) {
  std::erase_if(deliveries_, [&](const Delivery& delivery) {
    if (delivery.lba != atomicWrite.lba || delivery.blocks != atomicWrite.blocks) {
      return false;
    }
    Injection& injection = ledger_.at(delivery.injection);
    injection.visible -= delivery.visible ? 1U : 0U;
    injection.visiblePartly -= delivery.partly ? 1U : 0U;
    ++injection.preReads;
    return true;
  });
}

FaultLedger::Id FaultyDrive::enter(Injection injection) {
  const FaultLedger::Id id = ledger_.add(std::move(injection));
  for (const AlteredBlock& block : ledger_.at(id).altered) {
    alterations_.set(block.lba, {.content = block.is, .injection = id});
  }
  return id;
}

void FaultyDrive::enterRead(const Slot& slot, std::vector<AlteredBlock> altered, std::string note) {
  Injection injection = injectionOf(slot);
  injection.altered = std::move(altered);
  injection.note = std::move(note);
  const FaultLedger::Id id = ledger_.add(std::move(injection));
  for (const AlteredBlock& block : ledger_.at(id).altered) {
    noteDelivery(slot, block.lba, id);
  }
}

void FaultyDrive::flipReadBit(Slot& slot) {
  const DriveCommand& command = slot.command;
  std::vector<uint32_t> awaited;
  for (uint32_t block = 0; block < command.blocks; ++block) {
    if (live_.contains(command.lbaOf(block))) {
      awaited.push_back(block);
    }
  }
  if (awaited.empty()) {
    trigger_.takeBack();  // nobody waits for these blocks
  } else {
    const uint32_t block = awaited[random_.below(awaited.size())];
    const uint64_t lba = command.lbaOf(block);
    uint8_t* sector = command.data + block * command.unitBytes(geometry());
    const uint32_t sectorBytes = geometry().sectorBytes();
    std::vector<uint8_t> was(sector, sector + sectorBytes);
    sector[random_.below(sectorBytes)] ^= static_cast<uint8_t>(1U << random_.below(8));
    std::vector<AlteredBlock> altered;
    altered.push_back({.lba = lba, .was = std::move(was), .is = {sector, sector + sectorBytes}});
    enterRead(slot, std::move(altered), {});
  }
  live_.looked(command);
  recent_.add(command);
}

void FaultyDrive::replaceRead(Slot& slot) {
  const DriveCommand& command = slot.command;
  const uint32_t sectorBytes = geometry().sectorBytes();
  std::vector<AlteredBlock> altered;
  for (uint32_t block = 0; block < command.blocks; ++block) {
    const uint64_t lba = command.lbaOf(block);
    uint8_t* sector = command.data + block * command.unitBytes(geometry());
    const uint8_t* other = slot.memory.data() + uint64_t{block} * sectorBytes;
    if (std::memcmp(sector, other, sectorBytes) != 0) {
      altered.push_back({.lba = lba, .was = {sector, sector + sectorBytes}, .is = {other, other + sectorBytes}});
    }
  }
  const bool awaited =
      std::ranges::any_of(altered, [this](const AlteredBlock& block) { return live_.contains(block.lba); });
  if (!awaited) {
    trigger_.takeBack();
  } else {
    for (uint32_t block = 0; block < command.blocks; ++block) {
      std::memcpy(command.data + block * command.unitBytes(geometry()),
                  slot.memory.data() + uint64_t{block} * sectorBytes, sectorBytes);
    }
    enterRead(slot, std::move(altered), "came from LBA " + std::to_string(slot.elsewhere));
  }
  live_.looked(command);
  recent_.add(command);
}

void FaultyDrive::raiseFalseAlarm(Slot& slot, DriveCompletion& out) {
  const DriveCommand& command = slot.command;
  const uint64_t lba = command.lba + random_.below(command.blocks) * command.lbaStep;
  if (!live_.contains(lba)) {
    trigger_.takeBack();
  } else {
    Injection injection = injectionOf(slot);
    injection.note = "reports LBA " + std::to_string(lba);
    injection.delivered = injection.visible = injection.visibleVerify = 1;
    injection.firstDelivery = slot.number;
    ledger_.add(std::move(injection));
    setSense(out, sense::miscompareDuringVerify, lba);
  }
  live_.looked(command);
}

void FaultyDrive::publishForOthers(const DriveCommand& command) {
  if (exchange_ != nullptr && command.data != nullptr && commands_ >= spec_.atCommand && otherData_.empty()) {
    otherData_.assign(command.data, command.data + geometry().sectorBytes());
    exchange_->publish(otherData_);
  }
}

void FaultyDrive::rememberUnflushed(const Slot& slot) {
  const DriveCommand& command = slot.command;
  const bool through = command.forceUnitAccess || command.kind == CommandKind::writeAtomic;
  for (uint64_t lba = command.lba; lba < command.endLba(); lba += command.lbaStep) {
    if (through) {
      unflushed_.erase(lba);
    } else if (!liedFlush_) {  // what was written after the lie may be lost without one
      unflushed_.try_emplace(lba, bytesOf(slot.before.at(lba)));
    }
  }
}

void FaultyDrive::losePower() {
  Injection injection = std::move(*liedFlush_);
  liedFlush_.reset();
  for (const auto& [lba, old] : unflushed_) {
    if (injection.altered.size() == mostLostBlocks) {
      break;
    }
    if (alterations_.find(lba) != nullptr || random_.below(2) != 0) {
      continue;
    }
    // Nothing is outstanding now, so any slot will do for a read.
    Slot& slot = slotOf(0);
    DriveCompletion completion;
    startRead(slot, Phase::idle, lba, 1, 1);
    if (!inner().poll(completion, true) || !isCarriedOut(completion) ||
        std::equal(old.begin(), old.end(), slot.memory.data())) {
      continue;
    }
    injection.altered.push_back({.lba = lba, .was = {slot.memory.data(), slot.memory.data() + old.size()}, .is = old});
  }
  if (injection.altered.empty()) {
    trigger_.takeBack();
    return;
  }
  enter(std::move(injection));
}

}  // namespace corvane::host
