#include "host/framework/DriveThreadHost.h"

#include <chrono>
#include <stdexcept>
#include <utility>

#include "host/framework/DriveThreadImpl.h"
#include "host/framework/EventLogImpl.h"

namespace corvane::host {

struct DriveThreadHost::Parts {
  explicit Parts(uint32_t queueDepth) : tags(queueDepth), variables(queueDepth) {
    log.impl = &logState;
    threadState.variables = &variables;
    thread.impl = &threadState;
    thread.eventLog = &log;
    thread.freeTags = &tags.platform();
  }

  TagPool tags;
  SharedVariables variables;
  vdl::EventLog::Impl logState;
  vdl::EventLog log;
  vdl::DriveThread::Impl threadState;
  vdl::DriveThread thread;
};

namespace {

uint64_t wallClockUs() {
  using namespace std::chrono;
  return static_cast<uint64_t>(duration_cast<microseconds>(system_clock::now().time_since_epoch()).count());
}

}  // namespace

DriveThreadHost::DriveThreadHost(Settings settings) : parts_(std::make_unique<Parts>(settings.queueDepth)) {
  if (settings.blockSize == 0) {
    throw std::invalid_argument("drive \"" + settings.name + "\" has a block size of 0");
  }
  parts_->logState.sink = std::move(settings.log);
  vdl::DriveThread& thread = parts_->thread;
  thread.ostraDevice = settings.ostraDevice;
  thread.blockSize = settings.blockSize;
  thread.protectionEnabled = settings.protectionEnabled;
  thread.protectionBytes = settings.protectionBytes;
  thread.physicalExponent = settings.physicalExponent;
  thread.name = std::move(settings.name);
  thread.timestampUs = wallClockUs();
  thread.queueDepth = settings.queueDepth;
}

DriveThreadHost::~DriveThreadHost() = default;

vdl::DriveThread& DriveThreadHost::thread() { return parts_->thread; }
TagPool& DriveThreadHost::tags() { return parts_->tags; }
SharedVariables& DriveThreadHost::variables() { return parts_->variables; }
void* DriveThreadHost::driveData() const { return parts_->threadState.driveData; }

uint32_t DriveThreadHost::sectorBytes() const {
  const vdl::DriveThread& thread = parts_->thread;
  return thread.blockSize + (thread.protectionEnabled ? thread.protectionBytes : 0);
}

}  // namespace corvane::host
