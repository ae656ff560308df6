#include "tests/drive/nvme/FakeNvme.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <stdexcept>

namespace corvane::host {
namespace {

constexpr int32_t invalidOpcode = 0x001;
constexpr int32_t invalidField = 0x002;
constexpr int32_t outOfRange = 0x080;
constexpr int32_t zoneBoundary = 0x1B8;
constexpr int32_t zoneInvalidWrite = 0x1BC;
constexpr int32_t compareFailure = 0x285;
constexpr int32_t doNotRetry = 0x4000;

void put(uint8_t* at, uint64_t value, uint32_t bytes) {
  for (uint32_t i = 0; i < bytes; ++i) {
    at[i] = static_cast<uint8_t>(value >> 8 * i);
  }
}

bool actsOnProtection(const NvmeCommand& command) { return (command.dwords[2] >> 29 & 1U) != 0; }

uint64_t lbaOf(const NvmeCommand& command) { return command.dwords[0] | uint64_t{command.dwords[1]} << 32; }

}  // namespace

FakeNvme::FakeNvme(const FakeNvmeSettings& settings)
    : settings_(settings), random_(settings.seed), medium_(settings.blocks * sectorBytes(), 0x5A) {
  for (uint64_t lba = 0; settings_.zoneBlocks != 0 && lba < settings_.blocks; lba += settings_.zoneBlocks) {
    writePointers_.push_back(lba);
  }
}

void FakeNvme::submit(const NvmeRequest& request) {
  sent.push_back(request.command);
  waiting_.push_back(request);
}

bool FakeNvme::poll(NvmeReply& out, bool) {
  if (!cancelled_.empty()) {
    out = cancelled_.back();
    cancelled_.pop_back();
    return true;
  }
  if (waiting_.empty()) {
    throw std::logic_error("nothing is outstanding");
  }
  const auto place = waiting_.begin() + static_cast<std::ptrdiff_t>(random_.below(waiting_.size()));
  const NvmeRequest request = *place;
  waiting_.erase(place);
  out = {.slot = request.slot, .result = carryOut(request.command)};
  return true;
}

void FakeNvme::reset() {
  ++resets;
  for (const NvmeRequest& request : waiting_) {
    if (random_.below(2) == 0) {
      carryOut(request.command);
    }
    cancelled_.push_back({.slot = request.slot, .result = -EINTR});
  }
  waiting_.clear();
}

int32_t FakeNvme::admin(const NvmeCommand& command, uint32_t* result) {
  if (command.opcode == 0x06) {
    return identify(command);
  }
  if (command.opcode == 0x0A && command.dwords[0] == 6) {
    *result = settings_.cacheFeature;
    return 0;
  }
  adminCommands.push_back(command);
  return adminResult;
}

int32_t FakeNvme::identify(const NvmeCommand& command) const {
  const uint32_t structure = command.dwords[0] & 0xFF;
  const uint32_t set = command.dwords[1] >> 24;
  if (command.dataBytes != 4096) {
    return invalidField;
  }
  std::memset(command.data, 0, command.dataBytes);
  if (structure == 0x01) {
    describeController(command.data);
  } else if (structure == 0x00 && command.nsid == 1) {
    describeNamespace(command.data);
  } else if (structure == 0x03 && command.nsid == 1) {
    put(command.data, 2 | 8 << 8, 2);  // a 64-bit name that nobody asks about
    put(command.data + 12, 4 | 1 << 8, 2);
    command.data[16] = settings_.commandSet;
  } else if (structure == 0x06 && set == 0) {
    command.data[1] = settings_.wzsl;
  } else if (structure == 0x05 && set == 2 && settings_.commandSet == 2) {
    command.data[2] = settings_.readsAcrossZones ? 1 : 0;
    put(command.data + 4, settings_.mostActive, 4);
    put(command.data + 8, settings_.mostActive, 4);
    put(command.data + 2816 + 16, settings_.zoneBlocks, 8);
  } else {
    return invalidField;
  }
  return 0;
}

void FakeNvme::describeController(uint8_t* at) const {
  std::memcpy(at + 4, "SERIAL7             ", 20);
  std::memcpy(at + 24, "Fake Controller                         ", 40);
  std::memcpy(at + 64, "1.0     ", 8);
  at[77] = settings_.mdts;
  put(at + 520, settings_.oncs, 2);
  at[525] = settings_.volatileCache;
  put(at + 528, settings_.awupf, 2);
}

/// The format in use is number 1, so that nobody gets along by taking the first one.
void FakeNvme::describeNamespace(uint8_t* at) const {
  put(at, settings_.blocks, 8);
  put(at + 8, settings_.blocks, 8);
  at[24] = settings_.nsfeat;
  at[25] = 1;
  at[26] = static_cast<uint8_t>(1 | (settings_.metadataExtended ? 0x10 : 0));
  at[29] = settings_.protectionType;
  at[33] = settings_.dlfeat;
  put(at + 36, settings_.nawupf, 2);
  put(at + 42, settings_.nabo, 2);
  put(at + 44, settings_.nabspf, 2);
  put(at + 64, settings_.npwg, 2);
  put(at + 128, 13U << 16, 4);
  put(at + 132, settings_.metadataBytes | uint32_t{settings_.blockExponent} << 16, 4);
}

int32_t FakeNvme::runAlone(const NvmeCommand& command) {
  return command.opcode == 0x7A ? reportZones(command) : carryOut(command);
}

int32_t FakeNvme::reportZones(const NvmeCommand& command) const {
  if (command.dataBytes != (command.dwords[2] + 1) * 4 || command.dwords[3] != 0) {
    return invalidField;
  }
  std::memset(command.data, 0, command.dataBytes);
  put(command.data, writePointers_.size(), 8);
  uint64_t lba = lbaOf(command);
  for (uint32_t at = 64; at + 64 <= command.dataBytes && lba < settings_.blocks;
       at += 64, lba += settings_.zoneBlocks) {
    command.data[at] = 2;
    put(command.data + at + 8, settings_.zoneCapacity == 0 ? settings_.zoneBlocks : settings_.zoneCapacity, 8);
    put(command.data + at + 16, lba, 8);
  }
  return 0;
}

int32_t FakeNvme::carryOut(const NvmeCommand& command) {
  const auto failure = std::find_if(failures_.begin(), failures_.end(),
                                    [&](const Failure& one) { return one.opcode == command.opcode; });
  if (failure != failures_.end()) {
    const int32_t result = failure->result;
    failures_.erase(failure);
    return result;
  }
  const uint64_t lba = lbaOf(command);
  switch (command.opcode) {
    case 0x00:
      return 0;
    case 0x01:
    case 0x02:
    case 0x05:
    case 0x08:
      return move(command, lba, (command.dwords[2] & 0xFFFF) + uint64_t{1});
    case 0x09: {
      if (command.dwords[0] != 0 || command.dwords[1] != 4 || command.dataBytes != 16) {
        return invalidField;
      }
      uint32_t count = 0;
      uint64_t first = 0;
      std::memcpy(&count, command.data + 4, 4);
      std::memcpy(&first, command.data + 8, 8);
      std::memset(sector(first), 0, count * sectorBytes());
      return 0;
    }
    case 0x79: {
      if (command.dwords[3] != 4 || settings_.zoneBlocks == 0 || lba % settings_.zoneBlocks != 0) {
        return invalidField;
      }
      writePointers_[lba / settings_.zoneBlocks] = lba;
      std::memset(sector(lba), 0, settings_.zoneBlocks * sectorBytes());
      return 0;
    }
    default:
      return invalidOpcode;
  }
}

int32_t FakeNvme::checkSizes(const NvmeCommand& command, uint64_t count) const {
  const bool stripped = settings_.metadataBytes == 0 || actsOnProtection(command);
  const bool inData = !stripped && settings_.metadataExtended;
  const bool apart = !stripped && !settings_.metadataExtended;
  const bool nothing = command.opcode == 0x08;
  const uint64_t data = nothing ? 0 : count * (inData ? sectorBytes() : blockBytes());
  const uint64_t metadata = apart && !nothing ? count * settings_.metadataBytes : 0;
  const uint64_t most = settings_.mdts == 0 ? ~uint64_t{0} : uint64_t{4096} << settings_.mdts;
  const bool fits = command.dataBytes == data && command.metadataBytes == metadata && data <= most;
  return fits ? 0 : invalidField;
}

uint8_t* FakeNvme::dataOf(const NvmeCommand& command, uint64_t i) const {
  const bool withMetadata = settings_.metadataExtended && !actsOnProtection(command);
  return command.data + i * (withMetadata ? sectorBytes() : blockBytes());
}

uint8_t* FakeNvme::metadataOf(const NvmeCommand& command, uint64_t i) const {
  if (settings_.metadataBytes == 0 || actsOnProtection(command)) {
    return nullptr;
  }
  return settings_.metadataExtended ? dataOf(command, i) + blockBytes()
                                    : command.metadata + i * settings_.metadataBytes;
}

int32_t FakeNvme::admitWrite(uint64_t lba, uint64_t count) {
  if (settings_.zoneBlocks == 0) {
    return 0;
  }
  uint64_t& pointer = writePointers_[lba / settings_.zoneBlocks];
  if (lba / settings_.zoneBlocks != (lba + count - 1) / settings_.zoneBlocks) {
    return zoneBoundary | doNotRetry;
  }
  if (pointer != lba) {
    return zoneInvalidWrite | doNotRetry;
  }
  pointer += count;
  return 0;
}

int32_t FakeNvme::move(const NvmeCommand& command, uint64_t lba, uint64_t count) {
  const bool changes = command.opcode == 0x01 || command.opcode == 0x08;
  if (command.nsid != 1 || lba + count > settings_.blocks) {
    return outOfRange | doNotRetry;
  }
  if ((command.dwords[2] >> 26 & 7U) != 0) {
    return invalidField;  // nobody asks for checks
  }
  if (actsOnProtection(command) && (settings_.protectionType == 0 || command.opcode == 0x05)) {
    return invalidField;
  }
  int32_t result = checkSizes(command, count);
  if (result == 0 && changes) {
    result = admitWrite(lba, count);
  } else if (result == 0 && settings_.zoneBlocks != 0 && !settings_.readsAcrossZones &&
             lba / settings_.zoneBlocks != (lba + count - 1) / settings_.zoneBlocks) {
    result = zoneBoundary;
  }
  for (uint64_t i = 0; i < count && result == 0; ++i) {
    uint8_t* const block = sector(lba + i);
    uint8_t* const apart = metadataOf(command, i);
    std::array<uint8_t, 8> reference{};
    put(reference.data() + 4, command.dwords[4] + i, 4);
    if (command.opcode == 0x08) {
      std::memset(block, 0, sectorBytes());
    } else if (changes) {
      std::memcpy(block, dataOf(command, i), blockBytes());
    } else if (command.opcode == 0x02) {
      std::memcpy(dataOf(command, i), block, blockBytes());
      if (apart != nullptr) {
        std::memcpy(apart, block + blockBytes(), settings_.metadataBytes);
      }
    } else if (std::memcmp(block, dataOf(command, i), blockBytes()) != 0 ||
               (apart != nullptr && settings_.protectionType == 0 &&
                std::memcmp(block + blockBytes(), apart, settings_.metadataBytes) != 0)) {
      result = compareFailure | doNotRetry;
    }
    if (command.opcode == 0x01 && apart != nullptr) {
      std::memcpy(block + blockBytes(), apart, settings_.metadataBytes);
    } else if (changes && actsOnProtection(command)) {
      std::memcpy(block + blockBytes(), reference.data(), reference.size());
    }
  }
  return result;
}

}  // namespace corvane::host
