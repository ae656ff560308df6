#include "host/fault/FaultyDrive.h"

#include <algorithm>
#include <cstring>
#include <utility>

#include "host/drive/CommandCheck.h"
#include "host/drive/SenseData.h"
#include "host/fault/Damage.h"

namespace corvane::host {
namespace {

constexpr uint64_t strayId = UINT64_MAX;

}  // namespace

FaultyDrive::FaultyDrive(std::unique_ptr<Drive> drive, const FaultSpec& spec, uint64_t seed, FaultLedger& ledger,
                         FaultExchange* exchange)
    : ForwardingDrive(std::move(drive)),
      spec_(spec),
      ledger_(ledger),
      exchange_(exchange),
      trigger_(spec, seed),
      random_(seed ^ 0xFA017) {
  ledger_.listen({.issued =
                      [this](const DriveCommand& command) {
                        if (!changesMedium(command.kind)) {
                          live_.willLook(command);
                        }
                      },
                  .neverSent =
                      [this](const DriveCommand& command) {
                        if (command.kind == CommandKind::writeAtomic) {
                          notePreRead(command);
                        }
                        live_.failed(command);
                      }});
}

std::string FaultyDrive::description() const { return inner().description() + ", with " + faultSpecText(spec_); }

FaultyDrive::Slot& FaultyDrive::slotOf(uint32_t tag) {
  if (tag >= slots_.size()) {
    slots_.resize(tag + 1);
  }
  return slots_[tag];
}

void FaultyDrive::submit(const DriveCommand& command) {
  Slot& slot = slotOf(command.tag);
  slot.command = command;
  slot.number = ++commands_;
  begin(slot);
}

void FaultyDrive::begin(Slot& slot) {
  const DriveCommand& command = slot.command;
  if (prepared_ && !prepared_->id && commands_ > prepared_->lastCommand) {
    dropPrepared();
  }
  slot.struck = slot.wantsBefore = false;
  slot.impossible = refuse(command, geometry(), capabilities()).has_value();
  if (slot.impossible) {
    pass(slot);
    return;
  }
  if (command.kind == CommandKind::writeAtomic) {
    notePreRead(command);
  } else if (command.kind == CommandKind::read || command.kind == CommandKind::verify) {
    live_.willLook(command);
  }
  slot.struck = canStrike(spec_.what, command, geometry()) && strikes(slot);
  slot.wantsBefore = slot.struck && changesMedium(command.kind);
  if (spec_.what == FaultClass::lyingFlush && changesMedium(command.kind)) {
    slot.wantsBefore = true;
  }
  if (spec_.what == FaultClass::crossTalk && ledger_.drive() == 0 && changesMedium(command.kind)) {
    publishForOthers(command);
  }
  if (slot.struck && (spec_.what == FaultClass::atomicTear || spec_.what == FaultClass::invalidateIgnored)) {
    slot.recognisable.clear();
    for (uint32_t block = 0; block < command.blocks; ++block) {
      if (isRecognisable(command, command.lbaOf(block))) {
        slot.recognisable.insert(command.lbaOf(block));
      }
    }
  }
  if (slot.wantsBefore && command.blocks != 0) {
    readAround(slot, Phase::readingBefore);
  } else if (command.kind == CommandKind::verify && !lyingVerifies_ &&
             alterations_.touches(command.lba, command.endLba())) {
    startRead(slot, Phase::judging, command.lba, command.blocks, command.lbaStep);
  } else {
    pass(slot);
  }
}

void FaultyDrive::pass(Slot& slot) {
  DriveCommand honest = slot.command;
  slot.innerId = honest.id = nextInnerId_++;
  slot.phase = Phase::carriedOut;
  inner().submit(honest);
}

void FaultyDrive::startRead(Slot& slot, Phase phase, uint64_t lba, uint64_t blocks, uint32_t step) {
  DriveCommand read;
  read.kind = CommandKind::read;
  read.tag = slot.command.tag;
  read.lba = lba;
  read.blocks = static_cast<uint32_t>(blocks);
  read.lbaStep = step;
  read.dataBytes = blocks * geometry().sectorBytes();
  read.data = slot.memory.atLeast(read.dataBytes);
  slot.innerId = read.id = nextInnerId_++;
  slot.phase = phase;
  inner().submit(read);
}

void FaultyDrive::readAround(Slot& slot, Phase phase) {
  const Neighbourhood around = neighbourhoodOf(spec_.what, slot.command, geometry());
  startRead(slot, phase, around.first, around.end - around.first, 1);
}

Sectors FaultyDrive::takeAround(Slot& slot) const {
  const Neighbourhood around = neighbourhoodOf(spec_.what, slot.command, geometry());
  Sectors sectors(around.first, around.end - around.first, geometry().sectorBytes());
  std::memcpy(sectors.data(), slot.memory.data(), sectors.blocks() * sectors.sectorBytes());
  return sectors;
}

bool FaultyDrive::poll(DriveCompletion& out, bool wait) {
  while (inner().poll(out, wait)) {
    Slot* slot = out.tag < slots_.size() ? &slots_[out.tag] : nullptr;
    if (slot == nullptr || slot->phase == Phase::idle || slot->innerId != out.id) {
      out.id = strayId;
      return true;
    }
    if (goOn(*slot, out)) {
      out.id = slot->command.id;
      slot->phase = Phase::idle;
      return true;
    }
  }
  return false;
}

bool FaultyDrive::goOn(Slot& slot, DriveCompletion& out) {
  switch (slot.phase) {
    case Phase::readingBefore:
      if (isCarriedOut(out)) {
        slot.before = takeAround(slot);
      } else {
        // Without knowing what is there nobody could say what the fault has changed.
        slot.wantsBefore = false;
        if (std::exchange(slot.struck, false)) {
          trigger_.takeBack();
        }
      }
      pass(slot);
      return false;
    case Phase::carriedOut:
      return commandDone(slot, out);
    case Phase::readingAfter: {
      const bool known = isCarriedOut(out);
      out = slot.completion;
      if (known) {
        slot.after = takeAround(slot);
        strike(slot, out);
      } else {
        trigger_.takeBack();
        remember(slot.command);
      }
      return true;
    }
    case Phase::readingElsewhere: {
      const bool known = isCarriedOut(out);
      out = slot.completion;
      if (known) {
        replaceRead(slot);
      } else {
        trigger_.takeBack();
      }
      return true;
    }
    case Phase::judging:
      judge(slot, out);
      return true;
    case Phase::idle:
      break;
  }
  return true;
}

bool FaultyDrive::commandDone(Slot& slot, DriveCompletion& out) {
  const DriveCommand& command = slot.command;
  const bool good = isCarriedOut(out);
  if (slot.impossible) {
    return true;
  }
  if (changesMedium(command.kind)) {
    finishChange(slot, out);
    if (good && slot.struck) {
      slot.completion = out;
      readAround(slot, Phase::readingAfter);
      return false;
    }
  } else if (command.kind == CommandKind::read && good) {
    finishRead(slot, out);
    if (slot.struck && spec_.what == FaultClass::misdirectedRead && isCarriedOut(out)) {
      const Neighbourhood around = neighbourhoodOf(spec_.what, command, geometry());
      slot.elsewhere = random_.between(around.first, around.end - (command.endLba() - command.lba));
      slot.completion = out;
      startRead(slot, Phase::readingElsewhere, slot.elsewhere, command.blocks, command.lbaStep);
      return false;
    }
  } else if (command.kind == CommandKind::verify) {
    finishVerify(slot, out);
  }
  if (slot.struck) {
    if (good) {
      strike(slot, out);
    } else {
      trigger_.takeBack();
    }
  } else if (command.kind == CommandKind::syncCache && good) {
    unflushed_.clear();
  }
  return true;
}

void FaultyDrive::finishChange(Slot& slot, const DriveCompletion& out) {
  const DriveCommand& command = slot.command;
  const bool good = isCarriedOut(out);
  endAlterations(command, good ? &Injection::overwritten : &Injection::interrupted);
  if (!good) {
    live_.failed(command);
    return;
  }
  if (command.kind == CommandKind::zoneReset) {
    live_.zonesReset(command);
  } else if (command.kind == CommandKind::invalidate) {
    live_.invalidated(command);
  } else {
    live_.wrote(command);
    if (slot.wantsBefore && spec_.what == FaultClass::lyingFlush) {
      rememberUnflushed(slot);
    }
  }
  if (slot.struck) {
    return;  // the strike looks at the commands before this one first
  }
  remember(command);
}

void FaultyDrive::remember(const DriveCommand& change) {
  recent_.add(change);
  if (spec_.what == FaultClass::mixedCommands && change.data != nullptr) {
    otherData_.assign(change.data, change.data + geometry().sectorBytes());
  }
}

void FaultyDrive::finishRead(Slot& slot, DriveCompletion& out) {
  const DriveCommand& command = slot.command;
  if (alterations_.touches(command.lba, command.endLba())) {
    for (uint32_t block = 0; block < command.blocks; ++block) {
      const uint64_t lba = command.lbaOf(block);
      if (!show(slot, lba, command.data + block * command.unitBytes(geometry()))) {
        setSense(out, sense::unrecoveredRead, lba);
        return;
      }
    }
  }
  if (!slot.struck) {
    live_.looked(command);
    recent_.add(command);
  }
}

void FaultyDrive::finishVerify(Slot& slot, DriveCompletion& out) {
  const DriveCommand& command = slot.command;
  if (lyingVerifies_) {
    for (uint64_t lba = command.lba; lba < command.endLba(); lba += command.lbaStep) {
      if (const Alterations::Entry* altered = alterations_.find(lba)) {
        noteDelivery(slot, lba, altered->injection);
      }
    }
    out.status = scsi_status::good;
    out.senseBytes = 0;
  }
  if (!slot.struck) {
    live_.looked(command);
  }
}

void FaultyDrive::judge(Slot& slot, DriveCompletion& out) {
  if (!isCarriedOut(out)) {
    return;
  }
  const DriveCommand& command = slot.command;
  const uint32_t sectorBytes = geometry().sectorBytes();
  std::optional<uint64_t> different;
  for (uint32_t block = 0; block < command.blocks; ++block) {
    const uint64_t lba = command.lbaOf(block);
    uint8_t* sector = slot.memory.data() + uint64_t{block} * sectorBytes;
    if (!show(slot, lba, sector)) {
      setSense(out, sense::unrecoveredRead, lba);
      return;
    }
    if (!different && std::memcmp(sector, command.data + block * command.unitBytes(geometry()), sectorBytes) != 0) {
      different = lba;
    }
  }
  out.bytesTransferred = 0;
  if (different) {
    setSense(out, sense::miscompareDuringVerify, *different);
  }
  live_.looked(command);
}

bool FaultyDrive::isRecognisable(const DriveCommand& command, uint64_t lba) const {
  if (command.kind == CommandKind::invalidate) {
    return live_.contains(lba);
  }
  const std::optional<CommandKind> last = live_.lastChange(lba);
  return last && *last != CommandKind::trim && !recent_.wasReadSinceChange(command, lba);
}

void FaultyDrive::endAlterations(const DriveCommand& command, uint64_t Injection::*ending) {
  std::erase_if(tornNew_, [&command](uint64_t lba) { return lba >= command.lba && lba < command.endLba(); });
  if (!alterations_.touches(command.lba, command.endLba())) {
    return;
  }
  for (uint64_t lba = command.lba; lba < command.endLba(); lba += command.lbaStep) {
    const Alterations::Entry* altered = alterations_.find(lba);
    if (altered == nullptr) {
      continue;
    }
    if (altered->life == Alterations::Life::untilOverwritten) {
      ++(ledger_.at(altered->injection).*ending);
      alterations_.erase(lba);
      continue;
    }
    alterations_.erase(lba);
    if (prepared_ && --prepared_->blocksLeft == 0) {
      dropPrepared();
    }
  }
}

void FaultyDrive::dropOutstanding() {
  for (Slot& slot : slots_) {
    if (slot.phase == Phase::idle) {
      continue;
    }
    const bool begun = slot.phase == Phase::carriedOut || slot.phase == Phase::readingAfter;
    slot.phase = Phase::idle;
    if (slot.impossible) {
      continue;
    }
    if (std::exchange(slot.struck, false)) {
      trigger_.takeBack();
    }
    if (begun && changesMedium(slot.command.kind)) {
      endAlterations(slot.command, &Injection::interrupted);
      live_.failed(slot.command);
      for (uint64_t lba = slot.command.lba; lba < slot.command.endLba(); lba += slot.command.lbaStep) {
        unflushed_.erase(lba);
      }
    } else if (changesMedium(slot.command.kind)) {
      live_.failed(slot.command);
    }
  }
}

void FaultyDrive::reset() {
  inner().reset();
  dropOutstanding();
}

void FaultyDrive::powerCycle() {
  inner().powerCycle();
  dropOutstanding();
  if (liedFlush_) {
    losePower();
  }
  unflushed_.clear();
}

}  // namespace corvane::host
