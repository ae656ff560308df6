#include "vdl/EventLog.h"

#include <array>
#include <cstdarg>
#include <cstdio>
#include <string_view>
#include <vector>

#include "host/framework/EventLogImpl.h"
#include "vdl/Status.h"

namespace vdl {

namespace {

/// A longer line than the stack holds; rare, so it may allocate.
std::vector<char> formatLong(const char* format, va_list arguments, size_t length) {
  std::vector<char> text(length + 1);
  std::vsnprintf(text.data(), text.size(), format, arguments);
  return text;
}

}  // namespace

void EventLog::logf(int level, const char* format, ...) {
  if (impl == nullptr || !impl->sink) {
    return;
  }
  std::array<char, 512> line{};
  va_list arguments;
  va_start(arguments, format);
  const int written = std::vsnprintf(line.data(), line.size(), format, arguments);
  va_end(arguments);
  const auto length = static_cast<size_t>(written < 0 ? 0 : written);
  if (length < line.size()) {
    const std::lock_guard lock(impl->mutex);
    impl->sink(level, std::string_view(line.data(), length));
    return;
  }
  va_start(arguments, format);
  const std::vector<char> text = formatLong(format, arguments, length);
  va_end(arguments);
  const std::lock_guard lock(impl->mutex);
  impl->sink(level, std::string_view(text.data(), length));
}

const char* EventLog::errStr(int code) const {
  switch (code) {
    case status::ok:
      return "success";
    case status::outOfMemory:
      return "out of memory";
    case status::notFound:
      return "no record or no matching event";
    case status::notInContext:
      return "LBA is not part of the context";
    case status::badQueueRange:
      return "minimum queue size above the maximum";
    case status::bufferTooLarge:
      return "buffer too large or missing";
    case status::missingSetting:
      return "a required setting is missing";
    case status::noWriteToReadBack:
      return "no write to read back";
    case status::miscompare:
      return "data miscompare";
    case status::incompatibleOptions:
      return "incompatible options or command selection";
    case status::reportNotOpened:
      return "report file could not be opened";
    case status::showstopFailed:
      return "showstop failed";
    case status::pointerBeyondBuffer:
      return "pointer beyond the buffer";
    case status::writeSplice:
      return "write splice detected";
    case status::atomicOrder:
      return "atomic data ordering failure";
    case status::noRecord:
      return "no record of a command in flight";
    default:
      return "unknown status";
  }
}

}  // namespace vdl
