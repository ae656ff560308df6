#include "Corvane.h"

extern "C" [[gnu::visibility("default")]] int initAgent(vdl::AgentTable* table) {
  using vdl::Corvane;
  table->startTest = &Corvane::startTest;
  table->stopTest = &Corvane::stopTest;
  table->execute = &Corvane::execute;
  table->deviceReset = &Corvane::deviceReset;
  table->initConfigData = &Corvane::initConfigData;
  table->freeConfigData = &Corvane::freeConfigData;
  table->initDriveData = &Corvane::initDriveData;
  table->freeDriveData = &Corvane::freeDriveData;
  table->getHelpStr = &Corvane::getHelpStr;
  return 0;
}
