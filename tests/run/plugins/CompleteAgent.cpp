#include "vdl/Agent.h"

namespace {
int start(vdl::DriveThread*, const void*, void*, int) { return 0; }
int step(vdl::DriveThread*, const void*, void*) { return 0; }
int initConfig(vdl::ConfigManager*) { return 0; }
void release(void*) {}
int initDrive(vdl::DriveThread*) { return 0; }
const char* help() { return "an agent that does nothing"; }
}  // namespace

extern "C" int initAgent(vdl::AgentTable* table) {
  *table = {.startTest = start,
            .stopTest = start,
            .execute = step,
            .deviceReset = step,
            .initConfigData = initConfig,
            .freeConfigData = release,
            .initDriveData = initDrive,
            .freeDriveData = release,
            .getHelpStr = help};
  return 0;
}
