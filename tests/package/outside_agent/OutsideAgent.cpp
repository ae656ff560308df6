// The smallest agent that does something: every step writes a pattern where the host says, and compares nothing.

#include <cstdint>
#include <new>
#include <vector>

#include "vdl/Agent.h"
#include "vdl/Status.h"

namespace {

constexpr uint32_t nothing = 0xFFFFFFFF;
constexpr uint8_t pattern = 0x5A;

struct Options {
  vdl::Condition write;
  vdl::Condition read;  // hosts that also select reads look for it; this agent never applies it
};

/// One drive: the variables that it shares with the host, and its own account.
struct Writer {
  uint32_t* longest = nullptr;
  uint32_t* length = nullptr;
  uint32_t* finishedTag = nullptr;
  uint32_t* finishedStatus = nullptr;
  vdl::Buffer* data = nullptr;
  std::vector<uint8_t> memory;  // the same bytes for every command, so commands in flight may share them
  uint64_t writes = 0;
};

uint64_t sectorBytes(const vdl::DriveThread& drive) {
  return drive.blockSize + (drive.protectionEnabled ? drive.protectionBytes : 0);
}

int initConfigData(vdl::ConfigManager* manager) {
  auto* options = new (std::nothrow) Options;
  if (options == nullptr) {
    return vdl::status::outOfMemory;
  }
  int status = manager->registerConfigData(options, sizeof(Options));
  if (status == 0) {
    status = manager->addCondition("Write Condition", &options->write, "Applied in each step that writes");
  }
  if (status == 0) {
    status = manager->addCondition("Read Condition", &options->read, "Never applied");
  }
  return status;
}

void freeConfigData(void* options) { delete static_cast<Options*>(options); }

int initDriveData(vdl::DriveThread* drive) {
  auto* writer = new (std::nothrow) Writer;
  if (writer == nullptr) {
    return vdl::status::outOfMemory;
  }
  int status = 0;
  writer->longest = drive->mapU32("TestMaxXferLength", 1, &status, 1);
  writer->length = drive->mapU32("XferLength", 1, &status, 1);
  writer->finishedTag = drive->mapU32("LastTagID", 1, &status, nothing);
  writer->finishedStatus = drive->mapU32("LastStatusByte", 1, &status, nothing);
  writer->data = drive->mapBuffer("WriteData", 2, &status);
  if (status == 0) {
    status = drive->registerDriveData(writer);
  }
  if (status != 0) {
    delete writer;
  }
  return status;
}

void freeDriveData(void* writer) { delete static_cast<Writer*>(writer); }

int startTest(vdl::DriveThread* drive, const void*, void* data, int) {
  auto* writer = static_cast<Writer*>(data);
  writer->memory.assign(*writer->longest * sectorBytes(*drive), pattern);
  return 0;
}

int stopTest(vdl::DriveThread* drive, const void*, void* data, int) {
  const auto* writer = static_cast<Writer*>(data);
  drive->eventLog->logf(0, "outside agent: %llu writes finished", static_cast<unsigned long long>(writer->writes));
  return 0;
}

int execute(vdl::DriveThread* drive, const void* configData, void* data) {
  const auto* options = static_cast<const Options*>(configData);
  auto* writer = static_cast<Writer*>(data);
  if (*writer->finishedTag != nothing) {
    if (*writer->finishedStatus != 0) {
      drive->eventLog->logf(2, "a write ended with status 0x%02X", *writer->finishedStatus);
      return vdl::status::noRecord;
    }
    ++writer->writes;
  }
  if (drive->freeTags->peekNextFreeTag() == nothing) {
    return 0;
  }
  writer->data->view(writer->memory.data(), *writer->length * sectorBytes(*drive));
  drive->conditions |= options->write.anyMask | options->write.allMask;
  drive->conditions &= ~options->write.noneMask;
  return 0;
}

int deviceReset(vdl::DriveThread* drive, const void*, void*) {
  for (int32_t tag = drive->freeTags->getNotFreeTag(0, false); tag >= 0;
       tag = drive->freeTags->getNotFreeTag(0, false)) {
    drive->freeTags->pushFreeTag(static_cast<uint32_t>(tag), 0);
  }
  return 0;
}

const char* getHelpStr() { return "Writes a pattern where the host says. Needs a Write Condition."; }

}  // namespace

extern "C" int initAgent(vdl::AgentTable* table) {
  *table = {startTest,      stopTest,      execute,       deviceReset, initConfigData,
            freeConfigData, initDriveData, freeDriveData, getHelpStr};
  return 0;
}
