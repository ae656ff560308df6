#include "host/drive/Drive.h"

#include "host/ostra/DeviceTable.h"

namespace corvane::host {

const char* commandKindName(CommandKind kind) {
  switch (kind) {
    case CommandKind::write:
      return "write";
    case CommandKind::writeAtomic:
      return "atomic";
    case CommandKind::writeSame:
      return "writesame";
    case CommandKind::trim:
      return "trim";
    case CommandKind::read:
      return "read";
    case CommandKind::verify:
      return "verify";
    case CommandKind::syncCache:
      return "sync";
    case CommandKind::zoneReset:
      return "zonereset";
    case CommandKind::invalidate:
      return "invalidate";
  }
  return "unknown";
}

void Drive::useMemory(uint8_t*, uint64_t) noexcept {}

void Drive::sendQueued() {}

bool Drive::waitUpTo(uint64_t /*microseconds*/) { return false; }

int Drive::sendVendorRequest(const uint8_t*, uint32_t) { return VendorDevice::unsupported; }

}  // namespace corvane::host
