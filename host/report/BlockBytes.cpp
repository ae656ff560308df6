#include "host/report/BlockBytes.h"

#include <algorithm>

namespace corvane::host::report {
namespace {

constexpr size_t bucketBytes = 3;
constexpr size_t lbaAt = 8;
constexpr size_t lbaBytes = 8;
constexpr size_t idLengthAt = 16;
constexpr size_t idAt = 17;
constexpr size_t mostIdBytes = 8;

uint64_t bigEndian(const std::vector<uint8_t>& block, size_t offset, size_t bytes) {
  uint64_t value = 0;
  for (size_t i = 0; i < bytes; ++i) {
    value = value << 8 | block[offset + i];
  }
  return value;
}

}  // namespace

Stamp stampOf(const std::vector<uint8_t>& block) {
  Stamp stamp;
  stamp.zeros = !block.empty() && std::all_of(block.begin(), block.end(), [](uint8_t byte) { return byte == 0; });
  if (stamp.zeros || block.size() < idAt + mostIdBytes || block[bucketBytes] != 0) {
    return stamp;
  }
  const size_t idBytes = block[idLengthAt];
  if (idBytes > mostIdBytes || (idBytes != 0 && block[idAt] == 0)) {
    return stamp;
  }
  stamp.bucket = bigEndian(block, 0, bucketBytes);
  stamp.lba = bigEndian(block, lbaAt, lbaBytes);
  stamp.commandId = bigEndian(block, idAt, idBytes);
  return stamp;
}

std::vector<BlockField> blockFields(size_t blockBytes, size_t idBytes, size_t protectionBytes) {
  std::vector<BlockField> fields;
  const auto add = [&fields, blockBytes](const char* name, size_t offset, size_t bytes) {
    if (bytes != 0 && offset + bytes <= blockBytes) {
      fields.push_back({name, offset, bytes});
    }
  };
  add("bucket", 0, bucketBytes);
  add("LBA", lbaAt, lbaBytes);
  add("id length", idLengthAt, 1);
  add("command id", idAt, std::min(idBytes, mostIdBytes));
  if (protectionBytes <= blockBytes) {
    add("protection", blockBytes - protectionBytes, protectionBytes);
  }
  return fields;
}

std::vector<size_t> differingOffsets(const std::vector<uint8_t>& a, const std::vector<uint8_t>& b) {
  std::vector<size_t> offsets;
  for (size_t i = 0; i < std::max(a.size(), b.size()); ++i) {
    if (i >= a.size() || i >= b.size() || a[i] != b[i]) {
      offsets.push_back(i);
    }
  }
  return offsets;
}

std::string hexDigits(const std::vector<uint8_t>& bytes) {
  constexpr const char* digits = "0123456789abcdef";
  std::string text;
  text.reserve(bytes.size() * 2);
  for (const uint8_t byte : bytes) {
    text += digits[byte >> 4];
    text += digits[byte & 0xF];
  }
  return text;
}

}  // namespace corvane::host::report
