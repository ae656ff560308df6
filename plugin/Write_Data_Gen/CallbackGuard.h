#pragma once

#include <new>
#include <stdexcept>

#include "vdl/DriveThread.h"
#include "vdl/Status.h"

namespace vdl::agent {

/// Runs a callback's body; memory that runs out inside it becomes a logged status instead of an exception.
///
/// Other exceptions pass: those that the callback's contract names are the host's to see.
template <typename Body>
int guardMemory(DriveThread& thread, const char* callback, Body&& body) {
  const auto outOfMemory = [&] {
    const char* text = thread.eventLog->errStr(status::outOfMemory);
    thread.eventLog->logf(2, "%s(): %s (%d)", callback, text, status::outOfMemory);
    return static_cast<int>(status::outOfMemory);
  };
  try {
    return body();
  } catch (const std::bad_alloc&) {
    return outOfMemory();
  } catch (const std::length_error&) {
    return outOfMemory();
  }
}

}  // namespace vdl::agent
