#include "host/drive/GeometryKeys.h"

#include <array>
#include <cstdio>

namespace corvane::host {
namespace {

std::string binarySize(uint64_t bytes) {
  constexpr std::array<const char*, 5> units{"bytes", "KiB", "MiB", "GiB", "TiB"};
  auto value = static_cast<double>(bytes);
  size_t unit = 0;
  while (value >= 1024 && unit + 1 < units.size()) {
    value /= 1024;
    ++unit;
  }
  std::array<char, 48> text{};
  std::snprintf(text.data(), text.size(), "%.4g %s", value, units[unit]);
  return text.data();
}

}  // namespace

DriveGeometry takeGeometry(DriveAddress& address) {
  DriveGeometry geometry;
  geometry.blockSize = static_cast<uint32_t>(std::stoul(address.word("block", {"512", "1024", "2048", "4096"})));
  geometry.protectionBytes = static_cast<uint32_t>(std::stoul(address.word("pi", {"0", "8"})));
  geometry.physicalExponent = static_cast<uint32_t>(address.number("exponent", 0, 0, 15));
  return geometry;
}

uint64_t blocksOf(const DriveAddress& address, uint64_t bytes, const DriveGeometry& geometry) {
  if (bytes == 0 || bytes % geometry.sectorBytes() != 0) {
    const uint64_t below = bytes / geometry.sectorBytes() * geometry.sectorBytes();
    address.refuse(std::to_string(bytes) + " bytes are not a whole number of sectors of " +
                   std::to_string(geometry.sectorBytes()) + " bytes; choose a multiple, such as " +
                   std::to_string(below == 0 ? geometry.sectorBytes() : below));
  }
  return bytes / geometry.sectorBytes();
}

std::string geometryKeysHelp() {
  return "  block=512        bytes of a logical block: 512, 1024, 2048 or 4096\n"
         "  pi=0             protection bytes behind each block: 0 or 8; they count in the size\n"
         "  exponent=0       a physical block is 2^exponent logical ones, 0 to 15\n";
}

std::string describeGeometry(const DriveGeometry& geometry) {
  std::string text =
      binarySize(geometry.blocks * geometry.sectorBytes()) + ", " + std::to_string(geometry.blockSize) + "-byte blocks";
  if (geometry.protectionBytes != 0) {
    text += " with " + std::to_string(geometry.protectionBytes) + " protection bytes";
  }
  return text;
}

}  // namespace corvane::host
