#include "host/run/RangeAgents.h"

#include "host/run/ZoneWriter.h"

namespace corvane::host {

ZoneResetSource::ZoneResetSource(const ZoneMap& zones, const ZoneWriter* writer, uint64_t seed)
    : zones_(zones), writer_(writer), random_(seed) {}

uint32_t ZoneResetSource::pick() {
  const auto drawn = static_cast<uint32_t>(random_.below(zones_.count()));
  if (writer_ == nullptr) {
    return drawn;
  }
  for (uint32_t step = 0; step < zones_.count(); ++step) {
    const uint32_t zone = (drawn + step) % zones_.count();
    if (!writer_->isEmpty(zone)) {
      return zone;
    }
  }
  return drawn;
}

vdl::LBARange InvalidateSource::pick() {
  const uint64_t blocks = random_.between(1, maxBlocks_);
  const uint64_t first = random_.between(firstLba_, endLba_ - blocks);
  return {.first = first, .end = first + blocks};
}

}  // namespace corvane::host
