#include "host/run/TestDefinition.h"

#include <algorithm>
#include <stdexcept>

#include "host/base/Random.h"
#include "host/drive/DriveAddress.h"

namespace corvane::host {
namespace {

/// A file system takes names of 255 bytes, and reports are named after a drive with words before and behind.
constexpr size_t longestName = 128;

}  // namespace

uint32_t CommandMix::weight(CommandKind kind) const {
  switch (kind) {
    case CommandKind::write:
      return write;
    case CommandKind::writeAtomic:
      return writeAtomic;
    case CommandKind::writeSame:
      return writeSame;
    case CommandKind::trim:
      return trim;
    case CommandKind::read:
      return read;
    case CommandKind::verify:
      return verify;
    case CommandKind::syncCache:
    case CommandKind::zoneReset:
    case CommandKind::invalidate:
      break;
  }
  return 0;
}

void CommandMix::setWeight(CommandKind kind, uint32_t weight) {
  switch (kind) {
    case CommandKind::write:
      write = weight;
      return;
    case CommandKind::writeAtomic:
      writeAtomic = weight;
      return;
    case CommandKind::writeSame:
      writeSame = weight;
      return;
    case CommandKind::trim:
      trim = weight;
      return;
    case CommandKind::read:
      read = weight;
      return;
    case CommandKind::verify:
      verify = weight;
      return;
    case CommandKind::syncCache:
    case CommandKind::zoneReset:
    case CommandKind::invalidate:
      break;
  }
  throw std::invalid_argument("a command mix selects only writes, trims, reads and verifies");
}

uint32_t CommandMix::writeKinds() const {
  uint32_t kinds = 0;
  for (const uint32_t weight : {write, writeAtomic, writeSame, trim}) {
    kinds += weight != 0 ? 1 : 0;
  }
  return kinds;
}

uint64_t DriveShare::blocksOf(const DriveGeometry& drive) const {
  if (bytes != 0) {
    return bytes / drive.blockSize;
  }
  constexpr uint64_t whole = 100'000;
  return drive.blocks / whole * milliPercent + drive.blocks % whole * milliPercent / whole;
}

std::string driveDisplayName(std::string_view given, uint32_t index) {
  const std::string masked = maskedAddress(given);
  const std::string_view address = masked;
  // A path has no kind before it, and may have colons in it.
  const bool isPath = address.substr(0, 1) == "/";
  const size_t colon = isPath ? std::string_view::npos : address.find(':');
  const std::string_view kind = isPath ? "block" : address.substr(0, colon);
  std::string_view place = isPath ? address : std::string_view();
  if (colon != std::string_view::npos) {
    place = address.substr(colon + 1);
  }
  place = place.substr(0, place.find(','));
  size_t slash = place.rfind('/');
  if (kind == "iscsi" && slash != std::string_view::npos && slash != 0) {
    // A LUN says little without its target.
    slash = place.rfind('/', slash - 1);
  }
  if (slash != std::string_view::npos) {
    place = place.substr(slash + 1);
  }
  std::string name = kind == "sim" || place.empty() ? std::string(kind) + std::to_string(index) : std::string(place);
  const auto harmless = [](char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '.' || c == '_' ||
           c == '-';
  };
  std::replace_if(
      name.begin(), name.end(), [&](char c) { return !harmless(c); }, '_');
  return name.substr(0, longestName);
}

uint64_t deriveSeed(uint64_t seed, std::string_view purpose, uint64_t index) {
  uint64_t state = seed;
  uint64_t derived = Random::splitMix(state);
  for (const char c : purpose) {
    state ^= static_cast<unsigned char>(c);
    derived ^= Random::splitMix(state);
  }
  state ^= index;
  return derived ^ Random::splitMix(state);
}

}  // namespace corvane::host
