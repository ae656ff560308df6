#include "host/drive/scsi/ScsiPages.h"

#include <algorithm>
#include <bit>
#include <cstdio>

#include "host/base/BigEndian.h"

namespace corvane::host {
namespace {

using Reply = std::span<const uint8_t>;

constexpr uint32_t pageHeaderBytes = 4;
constexpr uint8_t supportedPagesPage = 0x00;
constexpr uint8_t serialPage = 0x80;
constexpr uint8_t identificationPage = 0x83;
constexpr uint8_t blockLimitsPage = 0xB0;
constexpr uint8_t provisioningPage = 0xB2;

bool hasBit(uint8_t byte, uint32_t bit) { return (byte >> bit & 1) != 0; }

/// A field of a reply; 0 where the reply ends before it does.
template <typename Value>
Value field(Reply bytes, size_t offset) {
  return offset + sizeof(Value) <= bytes.size() ? getBigEndian<Value>(&bytes[offset]) : Value{0};
}

/// The page without what follows it, when it is the one with this code.
std::optional<Reply> pageOf(Reply bytes, uint8_t code) {
  if (bytes.size() < pageHeaderBytes || bytes[1] != code) {
    return std::nullopt;
  }
  return bytes.first(std::min<size_t>(bytes.size(), pageHeaderBytes + getBigEndian<uint16_t>(&bytes[2])));
}

/// Text of a reply without the blanks around it; what nobody can print becomes a question mark.
std::string textOf(Reply bytes) {
  std::string text;
  for (const uint8_t byte : bytes) {
    if (byte == 0) {
      break;
    }
    text += byte >= 0x20 && byte < 0x7F ? static_cast<char>(byte) : '?';
  }
  const size_t first = text.find_first_not_of(' ');
  return first == std::string::npos ? "" : text.substr(first, text.find_last_not_of(' ') - first + 1);
}

std::string hexOf(Reply bytes) {
  std::string text;
  for (const uint8_t byte : bytes) {
    constexpr const char* digits = "0123456789abcdef";
    text += digits[byte >> 4];
    text += digits[byte & 0x0F];
  }
  return text;
}

bool dividesPowersOfTwo(uint32_t value) { return value <= 1 || std::has_single_bit(value); }

}  // namespace

std::optional<InquiryData> parseInquiry(Reply bytes) {
  constexpr size_t needed = 36;
  if (bytes.size() < needed) {
    return std::nullopt;
  }
  return InquiryData{.qualifier = static_cast<uint8_t>(bytes[0] >> 5),
                     .deviceType = static_cast<uint8_t>(bytes[0] & 0x1F),
                     .vendor = textOf(bytes.subspan(8, 8)),
                     .product = textOf(bytes.subspan(16, 16)),
                     .revision = textOf(bytes.subspan(32, 4))};
}

std::string deviceTypeName(uint8_t type) {
  switch (type) {
    case 0x00:
      return "a disk";
    case 0x01:
      return "a tape drive";
    case 0x02:
      return "a printer";
    case 0x03:
      return "a processor";
    case 0x04:
      return "a write-once drive";
    case 0x05:
      return "a CD or DVD drive";
    case 0x07:
      return "an optical memory drive";
    case 0x08:
      return "a media changer";
    case 0x0C:
      return "a storage array's controller";
    case 0x0D:
      return "an enclosure";
    case 0x0E:
      return "a disk with the reduced command set";
    case 0x11:
      return "an object storage device";
    case 0x14:
      return "a host-managed zoned disk";
    default: {
      std::string text = "a device of type ";
      text += hexOf({&type, 1});
      return text + "h";
    }
  }
}

std::optional<CapacityData> parseCapacity(Reply bytes) {
  constexpr size_t needed = 12;
  if (bytes.size() < needed) {
    return std::nullopt;
  }
  CapacityData data;
  data.lastLba = getBigEndian<uint64_t>(&bytes[0]);
  data.blockBytes = getBigEndian<uint32_t>(&bytes[8]);
  const auto protection = field<uint8_t>(bytes, 12);
  if (hasBit(protection, 0)) {
    data.protectionType = static_cast<uint8_t>((protection >> 1 & 7) + 1);
  }
  const auto exponents = field<uint8_t>(bytes, 13);
  data.protectionIntervalExponent = exponents >> 4;
  data.physicalExponent = exponents & 0x0F;
  const auto provisioning = field<uint16_t>(bytes, 14);
  data.provisioned = (provisioning & 0x8000) != 0;
  data.readsZeros = (provisioning & 0x4000) != 0;
  return data;
}

bool listsPage(Reply supportedPages, uint8_t page) {
  const std::optional<Reply> list = pageOf(supportedPages, supportedPagesPage);
  return list && std::find(list->begin() + pageHeaderBytes, list->end(), page) != list->end();
}

std::string parseSerial(Reply bytes) {
  const std::optional<Reply> page = pageOf(bytes, serialPage);
  return page ? textOf(page->subspan(pageHeaderBytes)) : "";
}

std::string parseDesignator(Reply bytes) {
  constexpr uint8_t ofTheUnit = 0;
  constexpr uint8_t eui = 2;
  constexpr uint8_t naa = 3;
  const std::optional<Reply> page = pageOf(bytes, identificationPage);
  if (!page) {
    return "";
  }
  std::string best;
  for (Reply rest = page->subspan(pageHeaderBytes); rest.size() >= 4;) {
    const size_t length = size_t{4} + rest[3];
    if (length > rest.size()) {
      break;
    }
    const uint8_t type = rest[1] & 0x0F;
    if ((rest[1] >> 4 & 3) == ofTheUnit && (type == naa || (type == eui && best.empty()))) {
      best = (type == naa ? "naa." : "eui.") + hexOf(rest.subspan(4, length - 4));
    }
    rest = rest.subspan(length);
  }
  return best;
}

std::optional<BlockLimits> parseBlockLimits(Reply bytes) {
  const std::optional<Reply> page = pageOf(bytes, blockLimitsPage);
  if (!page) {
    return std::nullopt;
  }
  const auto alignment = field<uint32_t>(*page, 32);
  constexpr uint32_t alignmentIsValid = 0x80000000;
  return BlockLimits{.mostTransfer = field<uint32_t>(*page, 8),
                     .mostUnmap = field<uint32_t>(*page, 20),
                     .unmapGranularity = field<uint32_t>(*page, 28),
                     .unmapAlignment = (alignment & alignmentIsValid) != 0 ? alignment & ~alignmentIsValid : 0,
                     .mostWriteSame = field<uint64_t>(*page, 36),
                     .mostAtomic = field<uint32_t>(*page, 44),
                     .atomicAlignment = field<uint32_t>(*page, 48),
                     .atomicGranularity = field<uint32_t>(*page, 52),
                     .mostAtomicWithBoundary = field<uint32_t>(*page, 56),
                     .mostAtomicBoundary = field<uint32_t>(*page, 60)};
}

std::optional<ProvisioningData> parseProvisioning(Reply bytes) {
  const std::optional<Reply> page = pageOf(bytes, provisioningPage);
  if (!page || page->size() < 6) {
    return std::nullopt;
  }
  const uint8_t flags = (*page)[5];
  return ProvisioningData{
      .unmaps = hasBit(flags, 7), .writeSameUnmaps = hasBit(flags, 6), .readsZeros = hasBit(flags, 2)};
}

std::optional<ModeData> parseMode(Reply bytes, uint8_t page, uint32_t headerBytes) {
  if (bytes.size() < headerBytes) {
    return std::nullopt;
  }
  const bool shortForm = headerBytes == 4;
  const uint8_t device = bytes[shortForm ? 2 : 3];
  ModeData data{.writeProtected = hasBit(device, 7), .forcesUnitAccess = hasBit(device, 4)};
  // Some send block descriptors although they were asked not to.
  const size_t start = headerBytes + (shortForm ? size_t{bytes[3]} : size_t{getBigEndian<uint16_t>(&bytes[6])});
  constexpr uint8_t codeMask = 0x3F;
  if ((field<uint8_t>(bytes, start) & codeMask) != page) {
    return std::nullopt;
  }
  data.writeBackCache = page == cachingPage && hasBit(field<uint8_t>(bytes, start + 2), 2);
  data.keepsApplicationTags = page == controlPage && hasBit(field<uint8_t>(bytes, start + 5), 7);
  return data;
}

std::optional<OperationSupport> parseOperationSupport(Reply bytes) {
  constexpr uint8_t notNow = 0;
  constexpr uint8_t no = 1;
  constexpr uint8_t asTheStandardSays = 3;
  constexpr uint8_t otherwise = 5;
  constexpr size_t usageAt = 4;
  if (bytes.size() < usageAt) {
    return std::nullopt;
  }
  const uint8_t support = bytes[1] & 7;
  if (support == no || support == otherwise) {
    return OperationSupport{};
  }
  if (support == notNow || support != asTheStandardSays) {
    return std::nullopt;
  }
  return OperationSupport{.supported = true, .flags = field<uint8_t>(bytes, usageAt + 1)};
}

AtomicWriting atomicWritingOf(const BlockLimits& limits, uint64_t mostTransfer) {
  AtomicWriting writing;
  if (limits.mostAtomic == 0 && (limits.mostAtomicBoundary == 0 || limits.mostAtomicWithBoundary == 0)) {
    writing.whyNot = "its block limits name no atomic transfer length";
    return writing;
  }
  if (!dividesPowersOfTwo(limits.atomicAlignment) || !dividesPowersOfTwo(limits.atomicGranularity)) {
    writing.whyNot = "its alignment or granularity of atomic writes is no power of two";
    return writing;
  }
  writing.bySegmentBound = limits.mostAtomic == 0;
  constexpr uint64_t mostOfCommandBlock = 0xFFFF;
  const uint64_t most =
      std::min({writing.bySegmentBound ? uint64_t{std::min(limits.mostAtomicBoundary, limits.mostAtomicWithBoundary)}
                                       : uint64_t{limits.mostAtomic},
                mostTransfer, mostOfCommandBlock});
  const uint32_t least = std::max({limits.atomicAlignment, limits.atomicGranularity, uint32_t{1}});
  if (least > most) {
    writing.whyNot = "its alignment or granularity of atomic writes is longer than its longest one";
    return writing;
  }
  writing.segments = {.leastBlocks = least, .mostBlocks = static_cast<uint32_t>(std::bit_floor(most))};
  return writing;
}

}  // namespace corvane::host
