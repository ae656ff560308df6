#include "tests/e2e/Combinations.h"

namespace corvane::host::e2e {
namespace {

using Options = std::vector<std::pair<std::string, std::string>>;

/// Collects combinations, each beginning from the usual test.
class List {
 public:
  Combination& add(const std::string& name, CommandMix mix = {}, Options options = {}) {
    Combination combination;
    combination.name = name;
    combination.test.mix = mix;
    combination.test.agentOptions = std::move(options);
    combinations_.push_back(std::move(combination));
    return combinations_.back();
  }
  std::vector<Combination> take() { return std::move(combinations_); }

 private:
  std::vector<Combination> combinations_;
};

constexpr CommandMix readWrite{.write = 1, .read = 1};
constexpr CommandMix verifyOnly{.write = 1, .read = 0, .verify = 1};
constexpr CommandMix readVerify{.write = 1, .read = 1, .verify = 1};
constexpr CommandMix atomicWrite{.write = 1, .writeAtomic = 1, .read = 1};
constexpr CommandMix atomicOnly{.write = 0, .writeAtomic = 1, .read = 1};
constexpr CommandMix withTrim{.write = 2, .trim = 1, .read = 1};
constexpr CommandMix withWriteSame{.write = 2, .writeSame = 1, .read = 1};
constexpr CommandMix everyKind{.write = 1, .writeAtomic = 1, .writeSame = 1, .trim = 1, .read = 1, .verify = 1};

const Options splice{{"Write Splice Detection", "true"}};

void addCommandKinds(List& list) {
  list.add("Plain", readWrite);
  list.add("AtomicAndWrite", atomicWrite);
  list.add("AtomicOnly", atomicOnly);
  list.add("WriteSame", withWriteSame);
  list.add("Trim", withTrim);
  list.add("VerifyOnly", verifyOnly);
  list.add("ReadAndVerify", readVerify);
  list.add("EveryKind", everyKind);
}

void addOptions(List& list) {
  list.add("Alternation", readWrite, {{"Random Selection", "false"}});
  list.add("AlternationVerify", verifyOnly, {{"Random Selection", "false"}});
  list.add("SlideReads", readWrite, {{"Slide Reads", "true"}});
  list.add("SlideEveryKind", everyKind, {{"Slide Reads", "true"}});
  list.add("UserData", readWrite, {{"User Defined Data", "true"}, {"Data Buffer", "Corvane keeps data"}});
  list.add("UserDataEveryKind", everyKind, {{"User Defined Data", "true"}, {"Data Buffer", "0123456789"}});
  list.add("EmbedOff", readWrite, {{"Embed Data", "false"}});
  list.add("EmbedOffEveryKind", everyKind, {{"Embed Data", "false"}});
  list.add("SkipCommands", readWrite, {{"Use Skip Commands", "true"}, {"Embed Data", "false"}});
  list.add("SkipSlide", readWrite, {{"Use Skip Commands", "true"}, {"Embed Data", "false"}, {"Slide Reads", "true"}});
  list.add("SpliceDetection", readWrite, splice);
  list.add("E2eHalf", readVerify).test.e2ePercent = 50;
  list.add("E2eAlways", atomicWrite).test.e2ePercent = 100;
}

void addFormats(List& list) {
  list.add("Blocks4096", everyKind).sim = ",block=4096";
  list.add("ProtectionBytes", everyKind).sim = ",pi=8";
  Combination& both = list.add("Protection4096E2e", readVerify);
  both.sim = ",pi=8,block=4096";
  both.test.e2ePercent = 30;
  list.add("PhysicalBlocks", everyKind).sim = ",exponent=3";
  Combination& deep = list.add("Depth1", everyKind);
  deep.test.queueDepth = 1;
  list.add("Depth2", everyKind, splice).test.queueDepth = 2;
  list.add("Sequential", everyKind).test.lbaAgent = "sequential";
  Combination& hot = list.add("CacheStress", everyKind);
  hot.test.lbaAgent = "cachestress";
  Combination& longest = list.add("LongTransfers", everyKind);
  longest.test.minBlocks = 32;
  longest.test.maxBlocks = 128;
  longest.test.maxAtomicBound = 64;
}

void addAccidents(List& list) {
  Combination& resets = list.add("Resets", readWrite, splice);
  resets.test.resetEveryCommands = 700;
  Combination& resetsEvery = list.add("ResetsEveryKind", everyKind, splice);
  resetsEvery.test.resetEveryCommands = 500;
  Combination& resetsAtomic = list.add("ResetsAtomic", atomicOnly);
  resetsAtomic.test.resetEveryCommands = 300;
  Combination& resetsSlide =
      list.add("ResetsSlide", everyKind, {{"Write Splice Detection", "true"}, {"Slide Reads", "true"}});
  resetsSlide.test.resetEveryCommands = 400;
  Combination& resetsSkip =
      list.add("ResetsSkip", readWrite,
               {{"Use Skip Commands", "true"}, {"Embed Data", "false"}, {"Write Splice Detection", "true"}});
  resetsSkip.test.resetEveryCommands = 600;

  const Options toggles{{"Write Splice Detection", "true"}, {"PowerToggle Freq", "1"}};
  Combination& sync = list.add("PowerToggleSync", readWrite, toggles);
  sync.test.powerToggle = PowerToggle::withSync;
  sync.sim = ",cache=volatile";
  sync.onFile = false;
  Combination& noSync = list.add("PowerToggleNoSync", readWrite, toggles);
  noSync.test.powerToggle = PowerToggle::withoutSync;
  Combination& forced = list.add("PowerToggleFua", atomicWrite, toggles);
  forced.test.powerToggle = PowerToggle::withoutSync;
  forced.test.forceUnitAccess = true;
  forced.sim = ",cache=volatile";
  forced.onFile = false;
  Combination& everything = list.add("PowerToggleSyncEveryKind", everyKind, toggles);
  everything.test.powerToggle = PowerToggle::withSync;
  everything.sim = ",cache=volatile";
  everything.onFile = false;
}

/// A combination that only the simulated drive can play.
Combination& addSimulated(List& list, const std::string& name, const std::string& sim, const CommandMix& mix,
                          const Options& options = {}) {
  Combination& combination = list.add(name, mix, options);
  combination.sim = sim;
  combination.onFile = false;
  combination.simOnly = true;
  return combination;
}

void addDriveFeatures(List& list) {
  Combination& zones = addSimulated(list, "ZoneResets", ",zones=1048576", readVerify, splice);
  zones.test.zoneResetEveryCommands = 150;
  Combination& zonesSlide =
      addSimulated(list, "ZoneResetsSlide", ",zones=131072", readWrite, {{"Slide Reads", "true"}});
  zonesSlide.test.zoneResetEveryCommands = 40;
  Combination& zonesSkip = addSimulated(list, "ZoneResetsSkip", ",zones=262144", readWrite,
                                        {{"Use Skip Commands", "true"}, {"Embed Data", "false"}});
  zonesSkip.test.zoneResetEveryCommands = 60;
  Combination& zonesReset = addSimulated(list, "ZoneResetsAndResets", ",zones=524288,abort=0.01", everyKind, splice);
  zonesReset.test.zoneResetEveryCommands = 50;
  zonesReset.test.resetEveryCommands = 400;
  Combination& managed = addSimulated(list, "HostManaged", ",zones=1048576,zonemodel=managed", readWrite, splice);
  managed.test.zoneResetEveryCommands = 100;
  managed.test.resetEveryCommands = 700;
  Combination& invalid = addSimulated(list, "InvalidatedRanges", "", readWrite, {{"Slide Reads", "true"}});
  invalid.test.invalidateEveryCommands = 20;
  Combination& aborts =
      addSimulated(list, "Accidents", ",abort=0.02,recovered=0.05,write-error=0.02", everyKind, splice);
  aborts.test.resetEveryCommands = 900;
  addSimulated(list, "ReadErrors", ",read-error=0.05,recovered=0.05", everyKind);
  for (const std::string tear : {"block", "sector", "4k"}) {
    Combination& torn = addSimulated(list, "PowerToggleTear" + tear, ",cache=volatile,block=4096,tear=" + tear,
                                     everyKind, {{"Write Splice Detection", "true"}, {"PowerToggle Freq", "1"}});
    torn.test.powerToggle = PowerToggle::withSync;
  }
}

}  // namespace

std::vector<Combination> combinations() {
  List list;
  addCommandKinds(list);
  addOptions(list);
  addFormats(list);
  addAccidents(list);
  addDriveFeatures(list);
  return list.take();
}

}  // namespace corvane::host::e2e
