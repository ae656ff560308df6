#pragma once

#include <cstdint>
#include <string>

#include "vdl/Buffer.h"
#include "vdl/EventLog.h"
#include "vdl/FreeTagQueue.h"
#include "vdl/LBARangeQueue.h"
#include "vdl/TaggedBuffer.h"

namespace vdl {

/// One drive under test: its properties, its queue tags, and the variables that the agents of a test share.
///
/// Every callback of an agent that takes a DriveThread runs on that drive's thread, never two at once for one
/// drive. The framework owns the object and everything it points at.
///
/// Shared variables come to life with the first `map…` of their name, with the default given there; later maps of
/// the name return the same storage, which lives as long as the DriveThread. The access mode is a declaration to
/// the framework and restricts nothing: 1 the agent consumes the value, 2 it produces it, 3 both, 5 it uses the
/// value only in tests that provide one. A map that fails (the name already has another kind) stores a negative
/// status in `*err`; a map that succeeds leaves `*err` alone, so one cell serves a whole series of maps.
class DriveThread {
 public:
  EventLog* eventLog = nullptr;      ///< never null during a callback
  int ostraDevice = -1;              ///< handle for the device-interface library; -1: none attached
  uint32_t blockSize = 0;            ///< logical block, bytes
  bool protectionEnabled = false;    ///< the drive transfers protection information with each block
  uint32_t protectionBytes = 0;      ///< bytes of it per block; counted only when enabled
  uint32_t physicalExponent = 0;     ///< physical block = blockSize << physicalExponent
  std::string name;                  ///< display name, used as it stands in file names
  uint64_t conditions = 0;           ///< the conditions that are set now, one bit each
  uint64_t timestampUs = 0;          ///< wall clock, microseconds since the epoch
  FreeTagQueue* freeTags = nullptr;  ///< never null during a callback
  uint32_t queueDepth = 0;           ///< number of tags, at most 1024

  uint32_t* mapU32(const char* name, uint32_t mode, int* err, uint32_t dflt);
  uint64_t* mapU64(const char* name, uint32_t mode, int* err, uint64_t dflt);
  bool* mapBool(const char* name, uint32_t mode, int* err, bool dflt);
  Buffer* mapBuffer(const char* name, uint32_t mode, int* err);
  TaggedBuffer* mapTaggedBuffer(const char* name, uint32_t mode, int* err);
  LBARangeQueue* mapLBARangeQueue(const char* name, uint32_t mode, int* err);

  /// Keeps the agent's per-drive record and passes it to every later callback of this drive.
  ///
  /// The record stays the agent's; the framework hands it to `freeDriveData` at the end.
  ///
  /// @return 0 or a negative status; the record is then not kept
  int registerDriveData(void* record);

  /// How many agents of this test write the named variable; 0 means nobody does.
  uint32_t countVarWriters(const char* name);

  /// The implementation's own state.
  struct Impl;
  Impl* impl = nullptr;
};

}  // namespace vdl
