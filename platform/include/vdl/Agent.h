#pragma once

#include "vdl/ConfigManager.h"
#include "vdl/DriveThread.h"

namespace vdl {

/// The callbacks of an agent, in the contract's order.
///
/// The framework calls them in this sequence: `initConfigData` once; `initDriveData` once for each drive; then on
/// each drive's own thread `startTest`, `execute` again and again, `deviceReset` after a reset of the drive,
/// `stopTest`; and at last `freeDriveData` for each drive and `freeConfigData` once. `configData` and `driveData`
/// are the records that the agent registered. A callback that returns `int` returns 0 or a negative status; any
/// status other than 0 ends the test. `freeDriveData` must cope with a `startTest` that failed half-way.
struct AgentTable {
  int (*startTest)(DriveThread* drive, const void* configData, void* driveData, int ignored);
  int (*stopTest)(DriveThread* drive, const void* configData, void* driveData, int ignored);
  int (*execute)(DriveThread* drive, const void* configData, void* driveData);
  int (*deviceReset)(DriveThread* drive, const void* configData, void* driveData);
  int (*initConfigData)(ConfigManager* manager);
  void (*freeConfigData)(void* configData);
  int (*initDriveData)(DriveThread* drive);
  void (*freeDriveData)(void* driveData);
  const char* (*getHelpStr)();
};

static_assert(sizeof(AgentTable) == 72, "nine slots, nothing else");

}  // namespace vdl

/// The one entry of an agent library: fills all nine slots and returns 0. It allocates nothing.
extern "C" int initAgent(vdl::AgentTable* table);
