#pragma once

#include <cstdint>
#include <functional>
#include <mutex>
#include <string>
#include <vector>

#include "host/run/ConditionSet.h"
#include "vdl/Agent.h"

namespace corvane::host::testing {

/// An agent in this process whose callbacks the test writes. One object at a time may be alive.
class FakeAgent {
 public:
  FakeAgent() { current_ = this; }
  ~FakeAgent() { current_ = nullptr; }
  FakeAgent(const FakeAgent&) = delete;
  FakeAgent& operator=(const FakeAgent&) = delete;

  vdl::AgentTable table() const {
    return {.startTest = [](vdl::DriveThread* thread, const void*, void*, int) { return current_->start(thread); },
            .stopTest = [](vdl::DriveThread* thread, const void*, void*, int) { return current_->stop(thread); },
            .execute = [](vdl::DriveThread* thread, const void*, void*) { return current_->onExecute(*thread); },
            .deviceReset = [](vdl::DriveThread* thread, const void*, void*) { return current_->reset(*thread); },
            .initConfigData = [](vdl::ConfigManager* manager) { return current_->initConfig(*manager); },
            .freeConfigData = [](void*) { current_->note("freeConfigData"); },
            .initDriveData = [](vdl::DriveThread* thread) { return current_->initDrive(*thread); },
            .freeDriveData = [](void*) { current_->note("freeDriveData"); },
            .getHelpStr = []() -> const char* { return "help"; }};
  }

  /// What `deviceReset` does in an agent: takes every tag back.
  static void takeTagsBack(vdl::DriveThread& thread) {
    for (int32_t tag = thread.freeTags->getNotFreeTag(0, false); tag >= 0;
         tag = thread.freeTags->getNotFreeTag(0, false)) {
      thread.freeTags->pushFreeTag(static_cast<uint32_t>(tag), 0);
    }
    int error = 0;
    *thread.mapU32("LastTagID", 1, &error, 0) = 255;
    *thread.mapU32("LastStatusByte", 1, &error, 0) = 0xFFFFFFFF;
  }

  /// Clears the selection and applies a condition, as an agent does in `execute`.
  static void apply(vdl::DriveThread& thread, uint64_t bits) {
    thread.conditions = (thread.conditions & ~(ConditionSet::allBits & ~ConditionSet::e2eBit)) | bits;
  }

  void note(const std::string& call) {
    const std::lock_guard lock(mutex_);
    calls.push_back(call);
  }

  std::function<int(vdl::DriveThread&)> onExecute = [](vdl::DriveThread& thread) {
    apply(thread, 0);
    return 0;
  };
  std::function<int(vdl::DriveThread&)> onStop = [](vdl::DriveThread&) { return 0; };
  int startStatus = 0;
  int initDriveStatus = 0;
  int initConfigStatus = 0;
  std::vector<std::string> calls;

  struct Options {
    uint32_t minQueueSize = 2048;
    uint32_t maxQueueSize = 4096;
    uint32_t seed = 0;
    uint32_t bucketCount = 65536;
    uint32_t powerToggleFreq = 300;
    bool embedData = true;
    bool embedLba = true;
    bool skipCommands = false;
    bool slideReads = false;
    bool spliceDetection = false;
    bool userData = false;
    std::string outputPath = "./datacompare";
    vdl::Condition conditions[9];
  } options;

 private:
  int start(vdl::DriveThread*) {
    note("startTest");
    return startStatus;
  }
  int stop(vdl::DriveThread* thread) {
    note("stopTest");
    return onStop(*thread);
  }
  int reset(vdl::DriveThread& thread) {
    note("deviceReset");
    takeTagsBack(thread);
    return 0;
  }
  int initDrive(vdl::DriveThread& thread) {
    note("initDriveData");
    const int status = thread.registerDriveData(this);
    return status != 0 ? status : initDriveStatus;
  }
  int initConfig(vdl::ConfigManager& manager) {
    note("initConfigData");
    manager.registerConfigData(&options, sizeof(options));
    manager.addU32("Min Queue Size", &options.minQueueSize, 1, 1000000, "");
    manager.addU32("Max Queue Size", &options.maxQueueSize, 1, 1000000, "");
    manager.addU32("Random Seed", &options.seed, 0, 0xFFFFFFFF, "");
    manager.addU32("Bucket Count", &options.bucketCount, 1, 524288, "");
    manager.addU32("PowerToggle Freq", &options.powerToggleFreq, 0, 1000000, "");
    manager.addBool("Embed Data", &options.embedData, "");
    manager.addBool("Embed LBA", &options.embedLba, "");
    manager.deprecate("Embed LBA", "Embed LBA is deprecated");
    manager.addBool("Use Skip Commands", &options.skipCommands, "");
    manager.addBool("Slide Reads", &options.slideReads, "");
    manager.addBool("Write Splice Detection", &options.spliceDetection, "");
    manager.addBool("User Defined Data", &options.userData, "");
    manager.addString("Miscompare Output Path", &options.outputPath, "");
    const char* names[] = {"Read Condition",        "Verify Condition",      "Write Condition",
                           "WriteAtomic Condition", "WriteSame Condition",   "Trim Condition",
                           "E2E Condition",         "PowerToggle Condition", "SyncCache Condition"};
    for (size_t i = 0; i < std::size(names); ++i) {
      manager.addCondition(names[i], &options.conditions[i], "");
    }
    return initConfigStatus;
  }

  inline static FakeAgent* current_ = nullptr;
  std::mutex mutex_;
};

}  // namespace corvane::host::testing
