#include "tests/e2e/FlippedBlocks.h"
#include "host/drive/ForwardingDrive.h"

#include <map>
#include <utility>

#include "host/base/Random.h"
#include "host/drive/SenseData.h"
#include "tests/e2e/EndToEnd.h"

namespace corvane::host::e2e {
namespace {

/// What is to go wrong, and what did.
struct Flip {
  FlipWhere where = FlipWhere::anyBlock;
  uint64_t countdown = 0;  ///< blocks, or verifies, to let pass
  Random random;
  uint64_t commandId = 0;  ///< 0: not yet
  uint64_t lba = 0;

  explicit Flip(uint64_t seed) : random(seed) {}

  bool done() const { return commandId != 0; }
  void spoil(const DriveCommand& command, uint32_t block, const DriveGeometry& geometry) {
    uint8_t* sector = command.data + block * command.unitBytes(geometry);
    sector[random.below(geometry.sectorBytes())] ^= static_cast<uint8_t>(1U << random.below(8));
    commandId = command.id;
    lba = command.lbaOf(block);
  }
};

/// A good drive but for one block that it delivers, or one verify that it misjudges.
class FlippingDrive : public ForwardingDrive {
 public:
  FlippingDrive(std::unique_ptr<Drive> drive, Flip& flip) : ForwardingDrive(std::move(drive)), flip_(flip) {}

  void submit(const DriveCommand& command) override {
    outstanding_[command.tag] = command;
    inner().submit(command);
  }
  bool poll(DriveCompletion& out, bool wait) override {
    if (!inner().poll(out, wait)) {
      return false;
    }
    if (!flip_.done() && out.status == scsi_status::good) {
      strike(outstanding_.at(out.tag), out);
    }
    return true;
  }

 private:
  void strike(const DriveCommand& command, DriveCompletion& out) {
    if (flip_.where == FlipWhere::anyBlock && command.kind == CommandKind::read) {
      if (flip_.countdown < command.blocks) {
        flip_.spoil(command, static_cast<uint32_t>(flip_.countdown), geometry());
      }
      flip_.countdown -= std::min<uint64_t>(flip_.countdown, command.blocks);
    } else if (flip_.where == FlipWhere::anyVerify && command.kind == CommandKind::verify && flip_.countdown-- == 0) {
      flip_.commandId = command.id;
      flip_.lba = command.lba;
      setSense(out, sense::miscompareDuringVerify, command.lba);
    }
  }

  Flip& flip_;
  std::map<uint32_t, DriveCommand> outstanding_;
};

bool isUncertain(FlipWhere where, const BlockWorth& worth) {
  const bool underAtomic = worth.outcomes > 1 || worth == BlockWorth{.reason = Uncheckable::atomicOverUnknown};
  const bool failed = worth == BlockWorth{.reason = Uncheckable::commandFailed};
  return (where == FlipWhere::uncertain && worth.outcomes != 1 && !failed) ||
         (where == FlipWhere::underAtomic && underAtomic);
}

std::string worthText(const BlockWorth& worth) {
  return worth.outcomes != 0 ? std::to_string(worth.outcomes) + " outcomes" : uncheckableText(worth.reason);
}

Workload mixed(const std::string& name, const CommandMix& mix, const std::string& drive,
               std::vector<std::pair<std::string, std::string>> options = {}) {
  Workload workload{.name = name, .help = "", .test = workloads().front().test};
  workload.test.mix = mix;
  workload.test.driveAddresses = {"sim:1m" + drive};
  for (auto& option : options) {
    workload.test.agentOptions.push_back(std::move(option));
  }
  return workload;
}

constexpr CommandMix everyKind{.write = 1, .writeAtomic = 1, .writeSame = 1, .trim = 1, .read = 2, .verify = 1};
constexpr CommandMix atomicMix{.write = 1, .writeAtomic = 2, .read = 1};
constexpr CommandMix atomicOnly{.write = 0, .writeAtomic = 1, .read = 1};
constexpr CommandMix readWrite{.write = 1, .read = 1};
const char* const accidents = ",abort=0.05,recovered=0.05,write-error=0.05,read-error=0.02";
const char* const aborts = ",abort=0.08,recovered=0.03";

}  // namespace

std::vector<Workload> flippedWorkloads() {
  std::vector<Workload> all = workloads();
  // A second drive would be struck, too, and only one result is looked at.
  std::erase_if(all, [](const Workload& workload) { return workload.test.driveAddresses.size() != 1; });
  all.push_back(canaryWorkload());
  const std::pair<std::string, std::string> splice{"Write Splice Detection", "true"};
  const std::pair<std::string, std::string> slide{"Slide Reads", "true"};
  const std::pair<std::string, std::string> inTurn{"Random Selection", "false"};
  const std::pair<std::string, std::string> shortest{"Min Queue Size", "1"};
  const std::pair<std::string, std::string> shortQueue{"Max Queue Size", "6"};

  all.push_back(mixed("accidents", everyKind, accidents));
  all.push_back(mixed("accidents-slide", everyKind, accidents, {slide}));
  all.push_back(mixed("atomic-aborts", atomicMix, aborts));
  all.push_back(mixed("atomic-only-aborts", atomicOnly, aborts));
  all.push_back(mixed("atomic-slide", atomicMix, aborts, {slide}));
  all.push_back(mixed("in-turn", everyKind, aborts, {inTurn}));
  all.push_back(mixed("short-queue", everyKind, "", {shortest, shortQueue}));
  all.push_back(mixed("short-queue-slide", {.write = 2, .writeSame = 1, .trim = 1, .read = 1, .verify = 1}, aborts,
                      {shortest, shortQueue, slide}));
  all.push_back(mixed("short-queue-atomic", atomicMix, aborts, {shortest, shortQueue}));
  all.push_back(mixed("short-queue-errors", readWrite, accidents, {shortest, shortQueue, slide}));
  all.push_back(mixed("invalidate-slide", readWrite, "", {slide}));
  all.back().test.invalidateEveryCommands = 5;
  all.push_back(mixed("zones-every-kind", everyKind, ",zones=16k" + std::string(aborts), {slide}));
  all.back().test.zoneResetEveryCommands = 11;
  all.push_back(
      mixed("zones-skip", readWrite, ",zones=16k", {{"Use Skip Commands", "true"}, {"Embed Data", "false"}, slide}));
  all.back().test.zoneResetEveryCommands = 13;
  all.push_back(
      mixed("skip-slide", readWrite, accidents, {{"Use Skip Commands", "true"}, {"Embed Data", "false"}, slide}));
  all.push_back(mixed("resets-slide", everyKind, "", {splice, slide}));
  all.back().test.resetEveryCommands = 41;
  all.push_back(mixed("resets-atomic", atomicMix, ""));
  all.back().test.resetEveryCommands = 37;
  all.push_back(mixed("resets-unspliced", readWrite, "", {slide}));
  all.back().test.resetEveryCommands = 53;
  all.push_back(mixed("power-atomic", atomicMix, ",cache=volatile", {splice, {"PowerToggle Freq", "1"}}));
  all.back().test.powerToggle = PowerToggle::withSync;
  all.push_back(mixed("no-sense", {.write = 1, .trim = 1, .read = 1}, accidents));
  all.back().test.deviceInterface = 1;
  return all;
}

bool FlippedRun::agrees() const {
  if (!flipped) {
    return result.status == RunStatus::clean;
  }
  if (!worth || *worth == BlockWorth{.reason = Uncheckable::atomicOverUnknown} ||
      *worth == BlockWorth{.reason = Uncheckable::untold}) {
    return true;
  }
  const DriveResult& drive = result.drives.at(0);
  return worth->outcomes != 0 ? drive.agentStatus == -1046 : drive.agentStatus == 0;
}

std::string FlippedRun::describe() const {
  return "LBA " + std::to_string(lba) + ", " + (worth ? worthText(*worth) : "read ahead of an atomic write") + "\n" +
         agentLines(result);
}

FlippedRun runFlipped(const Workload& workload, FlipWhere where, uint64_t seed) {
  const Workspace workspace;
  TestDefinition test = prepared(workload.test, workspace);
  test.seed = seed;
  Flip flip(seed);
  flip.where = where;
  constexpr uint64_t blocksOfATest = 2500;
  constexpr uint64_t looksOfATest = 100;
  flip.countdown = flip.random.below(where == FlipWhere::anyBlock ? blocksOfATest : looksOfATest);
  if (where == FlipWhere::uncertain || where == FlipWhere::underAtomic) {
    flip.countdown = flip.random.below(1 + flip.random.below(1 + flip.countdown));  // there may be few
  }

  FlippedRun run;
  const DriveGeometry* geometry = nullptr;
  const WorthListener listener = [&](const DriveCommand& command, uint64_t lba, BlockWorth worth) {
    if (!flip.done() && command.kind == CommandKind::read && isUncertain(where, worth) && flip.countdown-- == 0) {
      flip.spoil(command, static_cast<uint32_t>((lba - command.lba) / command.lbaStep), *geometry);
    }
    if (command.id == flip.commandId && lba == flip.lba) {
      run.worth = worth;
    }
  };
  run.result = runTest(
      test,
      [&](std::unique_ptr<Drive> drive) {
        auto flipping = std::make_unique<FlippingDrive>(std::move(drive), flip);
        geometry = &flipping->geometry();
        return flipping;
      },
      nullptr, listener);
  run.flipped = flip.done();
  run.lba = flip.lba;
  return run;
}

}  // namespace corvane::host::e2e
