#include "vdl/SenseParser.h"

#include <algorithm>
#include <cstring>

#include "vdl/Status.h"

namespace vdl {

namespace {

constexpr uint32_t headerBytes = 8;
constexpr uint32_t additionalLengthOffset = 7;
constexpr uint8_t informationDescriptor = 0x00;
constexpr uint8_t vendorDescriptor = 0x80;
constexpr uint8_t topBit = 0x80;

enum class Format { unknown, fixed, descriptor };

Format formatOf(const uint8_t* sense) {
  const uint8_t code = sense[0] & 0x7F;
  if (code == 0x70 || code == 0x71) {
    return Format::fixed;
  }
  return code == 0x72 || code == 0x73 ? Format::descriptor : Format::unknown;
}

uint32_t bytesOf(const uint8_t* sense) { return headerBytes + sense[additionalLengthOffset]; }

/// A byte of fixed-format sense data; 0 beyond what the additional length says.
uint8_t fixedByte(const uint8_t* sense, uint32_t offset) { return offset < bytesOf(sense) ? sense[offset] : 0; }

/// The first descriptor of a type that has at least so many bytes behind its two-byte header; null without one.
const uint8_t* findDescriptor(const uint8_t* sense, uint8_t type, uint32_t payloadBytes) {
  const uint32_t end = bytesOf(sense);
  for (uint32_t offset = headerBytes; offset + 2 <= end;) {
    const uint32_t payload = sense[offset + 1];
    const uint32_t next = offset + 2 + payload;
    if (sense[offset] == type && payload >= payloadBytes && next <= end) {
      return sense + offset;
    }
    offset = next;
  }
  return nullptr;
}

/// One byte that stands at different places in the two formats.
int readByte(const uint8_t* sense, uint32_t fixedOffset, uint32_t descriptorOffset, uint8_t mask, uint8_t& out) {
  switch (formatOf(sense)) {
    case Format::fixed:
      out = fixedByte(sense, fixedOffset) & mask;
      return status::ok;
    case Format::descriptor:
      out = sense[descriptorOffset] & mask;
      return status::ok;
    case Format::unknown:
      break;
  }
  return status::notFound;
}

uint16_t bigEndian16(const uint8_t* bytes) { return static_cast<uint16_t>(bytes[0] << 8 | bytes[1]); }

}  // namespace

int SenseParser::getKey(const uint8_t* sense, Kcq& out) { return readByte(sense, 2, 1, 0x0F, out.key); }
int SenseParser::getCode(const uint8_t* sense, Kcq& out) { return readByte(sense, 12, 2, 0xFF, out.code); }
int SenseParser::getQual(const uint8_t* sense, Kcq& out) { return readByte(sense, 13, 3, 0xFF, out.qual); }

int SenseParser::getUec(const uint8_t* sense, Uec& out) {
  switch (formatOf(sense)) {
    case Format::fixed:
      out = bytesOf(sense) >= 22 ? bigEndian16(sense + 20) : 0;
      return status::ok;
    case Format::descriptor: {
      const uint8_t* descriptor = findDescriptor(sense, vendorDescriptor, 2);
      out = descriptor == nullptr ? 0 : bigEndian16(descriptor + 2);
      return status::ok;
    }
    case Format::unknown:
      break;
  }
  return status::notFound;
}

int SenseParser::getValidBit(const uint8_t* sense, uint8_t* valid) {
  switch (formatOf(sense)) {
    case Format::fixed:
      *valid = (sense[0] & topBit) != 0 ? 1 : 0;
      return status::ok;
    case Format::descriptor: {
      const uint8_t* descriptor = findDescriptor(sense, informationDescriptor, 10);
      *valid = descriptor != nullptr && (descriptor[2] & topBit) != 0 ? 1 : 0;
      return status::ok;
    }
    case Format::unknown:
      break;
  }
  return status::notFound;
}

int SenseParser::getInformationBytes(const uint8_t* sense, uint8_t* eightBytes) {
  switch (formatOf(sense)) {
    case Format::fixed:
      std::memset(eightBytes, 0, 4);
      std::memcpy(eightBytes + 4, sense + 3, 4);
      return status::ok;
    case Format::descriptor: {
      const uint8_t* descriptor = findDescriptor(sense, informationDescriptor, 10);
      if (descriptor == nullptr) {
        std::memset(eightBytes, 0, 8);
      } else {
        std::memcpy(eightBytes, descriptor + 4, 8);
      }
      return status::ok;
    }
    case Format::unknown:
      break;
  }
  return status::notFound;
}

}  // namespace vdl
