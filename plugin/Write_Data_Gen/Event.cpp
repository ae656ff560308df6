#include "Event.h"

namespace vdl {

namespace {

void copyInto(PeekResult& result, const Event& event) {
  result.status = 0;
  result.block_type = event.block_type;
  result.block_num = event.block_num;
  result.hash = event.hash;
  result.embed = event.embed;
}

}  // namespace

PeekResult Event::peek(const Event* head, const Event* stop, bool stopAtTransparent) {
  PeekResult result;
  for (const Event* event = head; event != nullptr; event = event->next) {
    if (event->type == EventType::InvalidateMarker) {
      result.invalidated = true;
      continue;
    }
    const bool found = stop != nullptr ? event == stop : stopAtTransparent || !event->isTransparent();
    if (found) {
      copyInto(result, *event);
      break;
    }
  }
  return result;
}

bool operator==(const ObserveData& observed, const Event& event) {
  if (observed.block_num != event.block_num || observed.embed.valid != event.embed.valid) {
    return false;
  }
  if (!observed.embed.valid) {
    return true;
  }
  return observed.embed.cmd_id == event.embed.cmd_id && observed.embed.lba == event.embed.lba;
}

bool operator==(const Event& event, const ObserveData& observed) { return observed == event; }

}  // namespace vdl
