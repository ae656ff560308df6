#include "vdl/DriveThread.h"

#include <new>

#include "host/framework/DriveThreadImpl.h"
#include "host/framework/SharedVariablesStore.h"
#include "vdl/Status.h"

namespace vdl {

namespace {

/// Finds or creates a variable without letting an exception out; a failure goes to the error cell.
template <typename T, typename... Arguments>
T* map(DriveThread::Impl* impl, const char* name, int* err, Arguments... arguments) {
  try {
    T* value = impl->variables->store().get<T>(name, arguments...);
    if (value == nullptr) {
      *err = status::incompatibleOptions;
    }
    return value;
  } catch (const std::bad_alloc&) {
    *err = status::outOfMemory;
    return nullptr;
  }
}

}  // namespace

uint32_t* DriveThread::mapU32(const char* variable, uint32_t, int* err, uint32_t dflt) {
  return map<uint32_t>(impl, variable, err, dflt);
}

uint64_t* DriveThread::mapU64(const char* variable, uint32_t, int* err, uint64_t dflt) {
  return map<uint64_t>(impl, variable, err, dflt);
}

bool* DriveThread::mapBool(const char* variable, uint32_t, int* err, bool dflt) {
  return map<bool>(impl, variable, err, dflt);
}

Buffer* DriveThread::mapBuffer(const char* variable, uint32_t, int* err) { return map<Buffer>(impl, variable, err); }

TaggedBuffer* DriveThread::mapTaggedBuffer(const char* variable, uint32_t, int* err) {
  auto* views = map<corvane::host::TaggedViews>(impl, variable, err, impl->variables->store().tags);
  return views == nullptr ? nullptr : &views->platform();
}

LBARangeQueue* DriveThread::mapLBARangeQueue(const char* variable, uint32_t, int* err) {
  auto* queue = map<corvane::host::RangeQueueHost>(impl, variable, err);
  return queue == nullptr ? nullptr : &queue->platform;
}

int DriveThread::registerDriveData(void* record) {
  impl->driveData = record;
  return status::ok;
}

uint32_t DriveThread::countVarWriters(const char* variable) { return impl->variables->writers(variable); }

}  // namespace vdl
