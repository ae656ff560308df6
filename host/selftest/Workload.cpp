#include "host/selftest/Workload.h"

namespace corvane::host {
namespace {

using Options = std::vector<std::pair<std::string, std::string>>;

constexpr uint64_t rangeBlocks = 768;  ///< small, so that blocks are written again while they wait for their read

TestDefinition usualTest() {
  TestDefinition test;
  test.driveAddresses = {"sim:1m"};
  test.queueDepth = 8;
  test.maxBlocks = 16;
  test.endLba = rangeBlocks;
  test.commandLimit = 600;
  // Few and short, so that a campaign of many thousand tests takes minutes; every read follows within some dozen
  // commands.
  test.agentOptions = {
      {"Min Queue Size", "16"}, {"Max Queue Size", "48"}, {"Bucket Count", "256"}, {"Trace Depth", "2048"}};
  return test;
}

Workload make(const std::string& name, const std::string& help, const CommandMix& mix, const Options& options = {}) {
  Workload workload{.name = name, .help = help, .test = usualTest()};
  workload.test.mix = mix;
  workload.test.agentOptions.insert(workload.test.agentOptions.end(), options.begin(), options.end());
  return workload;
}

constexpr CommandMix readWrite{.write = 1, .read = 1};

Workload withAborts(Workload workload) {
  workload.test.driveAddresses = {"sim:1m,abort=0.02,recovered=0.02"};
  return workload;
}

Workload withResets() {
  Workload workload =
      make("resets", "every kind but verify, with device resets and aborted commands",
           {.write = 2, .writeAtomic = 1, .writeSame = 1, .trim = 1, .read = 1}, {{"Write Splice Detection", "true"}});
  workload.test.resetEveryCommands = 97;
  return withAborts(workload);
}

Workload withPowerCuts() {
  Workload workload = make("power", "a volatile cache, flushed before each of many power cuts",
                           {.write = 2, .writeSame = 1, .trim = 1, .read = 1},
                           {{"Write Splice Detection", "true"}, {"PowerToggle Freq", "1"}});
  workload.test.powerToggle = PowerToggle::withSync;
  workload.test.driveAddresses = {"sim:1m,cache=volatile"};
  return workload;
}

Workload withProtection() {
  Workload workload = make("protection", "8 protection bytes a block", readWrite);
  workload.test.driveAddresses = {"sim:532480,pi=8"};
  return workload;
}

Workload withZones() {
  Workload workload = make("zones", "zones that are reset among the writes, and reads that slide over them", readWrite,
                           {{"Slide Reads", "true"}});
  workload.test.driveAddresses = {"sim:1m,zones=16k"};
  workload.test.zoneResetEveryCommands = 23;
  return workload;
}

Workload onHostManagedZones() {
  Workload workload =
      make("host-managed", "writes at the write pointers of zones, which are reset when they are full", readWrite);
  workload.test.driveAddresses = {"sim:1m,zones=32k,zonemodel=managed"};
  workload.test.zoneResetEveryCommands = 29;
  return workload;
}

Workload withInvalidations() {
  Workload workload = make("invalidate", "ranges whose old content must never come back", readWrite);
  workload.test.invalidateEveryCommands = 11;
  return workload;
}

Workload ofTwoDrives() {
  Workload workload = make("two-drives", "two drives side by side", readWrite);
  workload.test.driveAddresses = {"sim:1m", "sim:1m"};
  return workload;
}

Workload onLargeBlocks() {
  Workload workload = make("blocks-4096", "blocks of 4096 bytes", {.write = 1, .writeSame = 1, .read = 1});
  workload.test.driveAddresses = {"sim:4m,block=4096"};
  return workload;
}

Workload withAtomicWrites() {
  Workload workload =
      make("atomic", "atomic writes over data that still wait for their read",
           {.write = 1, .writeAtomic = 2, .read = 1}, {{"Max Queue Size", "160"}, {"Min Queue Size", "96"}});
  workload.test.endLba = rangeBlocks / 2;
  workload.test.commandLimit = 900;
  return workload;
}

}  // namespace

const std::vector<Workload>& workloads() {
  static const std::vector<Workload> all{
      make("write-read", "writes and reads", readWrite),
      make("verify", "writes, checked by verifies alone", {.write = 1, .read = 0, .verify = 1}),
      make("read-verify", "writes, checked by reads and verifies", {.write = 1, .read = 1, .verify = 1}),
      withAtomicWrites(),
      make("skip", "commands that touch every other block", readWrite,
           {{"Use Skip Commands", "true"}, {"Embed Data", "false"}}),
      make("slide", "reads that do not begin where the writes began", readWrite, {{"Slide Reads", "true"}}),
      make("trims", "trims and write-sames among the writes", {.write = 2, .writeSame = 1, .trim = 1, .read = 1}),
      withResets(),
      withPowerCuts(),
      onLargeBlocks(),
      withProtection(),
      withZones(),
      onHostManagedZones(),
      withInvalidations(),
      ofTwoDrives(),
  };
  return all;
}

Workload canaryWorkload() {
  Workload workload = make("canary", "reads without data: nothing is compared", readWrite);
  workload.test.readDataDelivered = false;
  return workload;
}

}  // namespace corvane::host
