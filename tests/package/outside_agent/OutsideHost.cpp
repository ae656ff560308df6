// The smallest host that does something: lets an agent write 100 times to a drive that is always pleased.

#include <dlfcn.h>

#include <cstdint>
#include <cstdio>
#include <string>
#include <string_view>

#include "host/framework/DriveThreadHost.h"
#include "host/framework/OptionRegistry.h"
#include "ostra/Ostra.h"
#include "vdl/Agent.h"
#include "vdl/Status.h"

namespace {

using corvane::host::DriveThreadHost;
using corvane::host::OptionRegistry;
using corvane::host::TagPool;

constexpr uint64_t writeBit = 1;
constexpr uint64_t readBit = 2;  // agents that compare insist on reads; few writes do not make them read
constexpr uint32_t wanted = 100;
constexpr uint32_t good = 0;

/// Executes until so many writes were issued and finished. @return what the agent returned
int runSteps(const vdl::AgentTable& agent, const void* configData, DriveThreadHost& drive, uint32_t& writes) {
  uint32_t& finishedTag = drive.variables().u32("LastTagID");
  uint32_t& finishedStatus = drive.variables().u32("LastStatusByte");
  while (writes < wanted) {
    drive.thread().conditions = 0;
    drive.variables().u64("LBA") = writes;
    drive.variables().u32("XferLength") = 1;
    drive.variables().u32("AtomicBound") = 1;
    drive.variables().u32("SkipGen") = 0;
    const int status = agent.execute(&drive.thread(), configData, drive.driveData());
    if (status != 0) {
      return status;
    }
    finishedTag = finishedStatus = TagPool::none;
    if ((drive.thread().conditions & writeBit) != 0) {
      const uint32_t tag = drive.tags().take();
      ++writes;
      drive.tags().release(tag);
      finishedTag = tag;
      finishedStatus = good;
    }
  }
  drive.thread().conditions = 0;
  return agent.execute(&drive.thread(), configData, drive.driveData());
}

int runAgent(const vdl::AgentTable& agent) {
  OptionRegistry options;
  int status = agent.initConfigData(&options.platform());
  const std::string refusal = options.setCondition("Write Condition", {.anyMask = writeBit}) +
                              options.setCondition("Read Condition", {.anyMask = readBit});
  if (!refusal.empty()) {
    std::fprintf(stderr, "%s\n", refusal.c_str());
    return 1;
  }
  DriveThreadHost drive({.name = "drive", .queueDepth = 4, .log = [](int, std::string_view text) {
                           std::printf("%.*s\n", static_cast<int>(text.size()), text.data());
                         }});
  drive.variables().u32("TestMaxXferLength") = 1;
  drive.variables().u64("MaxLBA") = 1000;
  drive.variables().u32("LastTagID") = TagPool::none;
  drive.variables().u32("LastStatusByte") = TagPool::none;
  uint32_t writes = 0;
  status = status != 0 ? status : agent.initDriveData(&drive.thread());
  status = status != 0 ? status : agent.startTest(&drive.thread(), options.record(), drive.driveData(), 0);
  status = status != 0 ? status : runSteps(agent, options.record(), drive, writes);
  status = status != 0 ? status : agent.stopTest(&drive.thread(), options.record(), drive.driveData(), 0);
  agent.freeDriveData(drive.driveData());
  agent.freeConfigData(options.record());
  std::printf("outside host: %u writes\n", writes);
  if (status != 0) {
    std::fprintf(stderr, "the agent says: %s\n", drive.thread().eventLog->errStr(status));
  }
  return status == 0 && Ostra::getCurrentDeviceIndex() == 0 ? 0 : 1;
}

}  // namespace

int main(int argc, char** argv) {
  void* library = argc == 2 ? dlopen(argv[1], RTLD_NOW | RTLD_LOCAL) : nullptr;
  if (library == nullptr) {
    std::fprintf(stderr, "give an agent's library: %s\n", argc == 2 ? dlerror() : "none is named");
    return 2;
  }
  const auto initAgent = reinterpret_cast<int (*)(vdl::AgentTable*)>(dlsym(library, "initAgent"));
  vdl::AgentTable table{};
  if (initAgent == nullptr || initAgent(&table) != 0) {
    std::fprintf(stderr, "%s is no agent\n", argv[1]);
    return 2;
  }
  return runAgent(table);
}
