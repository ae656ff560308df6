#include "host/drive/SenseData.h"

#include <algorithm>
#include <limits>

#include "host/base/BigEndian.h"

namespace corvane::host {
namespace {

constexpr uint8_t fixedFormat = 0x70;
constexpr uint8_t descriptorFormat = 0x72;
constexpr uint8_t validBit = 0x80;
constexpr uint8_t currentOrDeferred = 0xFE;  ///< the formats of both differ in the last bit
constexpr size_t additionalLengthAt = 7;
constexpr uint32_t headerBytes = 8;
constexpr uint32_t fixedBytes = 18;
constexpr uint32_t informationDescriptorBytes = 12;

}  // namespace

bool isCarriedOut(const DriveCompletion& completion) {
  constexpr uint8_t keyMask = 0x0F;
  if (completion.status != scsi_status::checkCondition) {
    return completion.status == scsi_status::good;
  }
  if (completion.senseBytes < headerBytes) {
    return false;
  }
  const uint8_t format = completion.sense[0] & ~validBit & currentOrDeferred;
  if (format != fixedFormat && format != descriptorFormat) {
    return false;
  }
  const uint8_t key = completion.sense[format == descriptorFormat ? 1 : 2] & keyMask;
  return key == sense_key::recoveredError;
}

void takeSense(DriveCompletion& completion, std::span<const uint8_t> came) {
  completion.senseBytes = static_cast<uint32_t>(std::min(came.size(), completion.sense.size()));
  completion.sense = {};
  std::copy_n(came.begin(), completion.senseBytes, completion.sense.begin());
  if (completion.senseBytes >= headerBytes) {
    const auto behindHeader = static_cast<uint8_t>(completion.senseBytes - headerBytes);
    uint8_t& announced = completion.sense[additionalLengthAt];
    announced = std::min(announced, behindHeader);
  }
}

void setSense(DriveCompletion& completion, const Sense& sense, std::optional<uint64_t> information) {
  completion.status = scsi_status::checkCondition;
  completion.bytesTransferred = 0;
  completion.sense = {};
  uint8_t* bytes = completion.sense.data();
  if (information.value_or(0) <= std::numeric_limits<uint32_t>::max()) {
    completion.senseBytes = fixedBytes;
    bytes[0] = fixedFormat;
    bytes[2] = sense.key;
    bytes[additionalLengthAt] = fixedBytes - headerBytes;
    bytes[12] = sense.code;
    bytes[13] = sense.qualifier;
    if (information) {
      bytes[0] |= validBit;
      putBigEndian(bytes + 3, static_cast<uint32_t>(*information));
    }
    return;
  }
  completion.senseBytes = headerBytes + informationDescriptorBytes;
  bytes[0] = descriptorFormat;
  bytes[1] = sense.key;
  bytes[2] = sense.code;
  bytes[3] = sense.qualifier;
  bytes[additionalLengthAt] = informationDescriptorBytes;
  uint8_t* descriptor = bytes + headerBytes;
  descriptor[1] = informationDescriptorBytes - 2;
  descriptor[2] = validBit;
  putBigEndian(descriptor + 4, *information);
}

}  // namespace corvane::host
