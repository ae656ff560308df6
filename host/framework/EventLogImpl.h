#pragma once

#include <mutex>

#include "host/framework/DriveThreadHost.h"
#include "vdl/EventLog.h"

/// Where a drive's lines go, one at a time.
struct vdl::EventLog::Impl {
  std::mutex mutex;
  corvane::host::LogSink sink;
};
