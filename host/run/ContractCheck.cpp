#include "host/run/ContractCheck.h"

#include <algorithm>
#include <filesystem>
#include <limits>
#include <set>
#include <system_error>

#include "host/drive/DriveAddress.h"
#include "host/drive/DriveError.h"
#include "host/framework/TagPool.h"
#include "host/run/AtomicSegmentAgent.h"
#include "host/run/ConditionCheck.h"
#include "host/run/ZoneMap.h"

namespace corvane::host {
namespace {

constexpr uint32_t largestAtomicTransfer = 0xFFFF;  ///< WRITE ATOMIC(16) has 16 bits for its length and its boundary

std::string text(uint64_t number) { return std::to_string(number); }

uint32_t stepOf(const AgentOptionValues& options) { return options.skipCommands ? 2 : 1; }

bool losesCommands(const TestDefinition& test) {
  return test.resetEveryCommands != 0 || test.powerToggle != PowerToggle::off;
}

bool writesPlainly(const CommandMix& mix) { return mix.write != 0 || mix.writeSame != 0 || mix.trim != 0; }

/// The same for two addresses of one device or file, however they spell its path.
std::string identityOf(const std::string& address, const std::string& place) {
  try {
    const DriveAddress parts(address);
    if (parts.scheme() == "sim" || parts.scheme() == "iscsi") {
      return place;
    }
    std::error_code fault;
    const std::filesystem::path path = std::filesystem::weakly_canonical(parts.target(), fault);
    return fault ? place : path.string();
  } catch (const DriveAddressError&) {
    return place;  // whoever opens it says what is wrong
  }
}

/// Collects the sentences of one report.
class Judge {
 public:
  void refuseIf(bool wrong, const std::string& sentence) { addIf(wrong, report_.refusals, sentence); }
  void warnIf(bool weak, const std::string& sentence) { addIf(weak, report_.warnings, sentence); }
  ContractReport take() { return std::move(report_); }

 private:
  static void addIf(bool condition, std::vector<std::string>& to, const std::string& sentence) {
    if (condition) {
      to.push_back(sentence);
    }
  }

  ContractReport report_;
};

void judgeNumbers(Judge& judge, const TestDefinition& test, const AgentOptionValues& options) {
  judge.refuseIf(test.queueDepth == 0 || test.queueDepth > TagPool::maxTags,
                 "queue depth " + text(test.queueDepth) + " is not possible; choose 1 to " + text(TagPool::maxTags));
  judge.refuseIf(test.minBlocks == 0, "transfer length 0 writes nothing that could be read back; choose at least 1");
  judge.refuseIf(test.minBlocks > test.maxBlocks, "the shortest transfer of " + text(test.minBlocks) +
                                                      " blocks is above the longest of " + text(test.maxBlocks) +
                                                      "; swap the two");
  judge.refuseIf(options.bucketCount != 0 && test.maxBlocks >= options.bucketCount,
                 "transfers of " + text(test.maxBlocks) + " blocks do not fit into the pool of write data; set " +
                     "\"Bucket Count\" above that (it is " + text(options.bucketCount) + ") or shorten the transfers");
  judge.refuseIf(test.minAtomicBound == 0 || test.minAtomicBound > test.maxAtomicBound,
                 "atomic bounds " + text(test.minAtomicBound) + ".." + text(test.maxAtomicBound) +
                     " are no range; give 1 <= MIN <= MAX");
  judge.refuseIf(test.mix.writeAtomic != 0 && std::max(test.maxBlocks, test.maxAtomicBound) > largestAtomicTransfer,
                 "an atomic write and its bound have at most " + text(largestAtomicTransfer) +
                     " blocks; shorten the transfers or leave atomic writes out");
  judge.refuseIf(test.e2ePercent > 100,
                 "an end-to-end share of " + text(test.e2ePercent) + " percent is not possible; choose 0 to 100");
  judge.refuseIf(test.endLba != 0 && test.endLba <= test.firstLba,
                 "the LBA range " + text(test.firstLba) + ".." + text(test.endLba) +
                     " is empty; its end is not included and must be above its start");
  judge.refuseIf(test.endLba != 0 && test.size.any(),
                 "the size and the end of the LBA range both say where the test ends; leave one out");
  judge.refuseIf(options.minQueueSize > options.maxQueueSize, "\"Min Queue Size\" " + text(options.minQueueSize) +
                                                                  " is above \"Max Queue Size\" " +
                                                                  text(options.maxQueueSize) + "; set both");
  judge.refuseIf(test.watchdogMs == 0, "a watchdog of 0 s would end every test at once; choose at least 1 s");
}

void judgeSelection(Judge& judge, const TestDefinition& test, const AgentOptionValues& options) {
  const CommandMix& mix = test.mix;
  judge.refuseIf(mix.writeKinds() == 0,
                 "nothing would be written; select at least one of write, atomic, writesame and trim");
  judge.refuseIf(mix.read == 0 && mix.verify == 0, "nothing would be checked; select at least one of read and verify");
  judge.refuseIf(mix.writeAtomic != 0 && mix.read == 0,
                 "atomic writes need reads, because unknown content is read before it is overwritten; select read "
                 "too");
  judge.refuseIf(mix.writeAtomic != 0 && options.slideReads && options.minQueueSize < test.queueDepth,
                 "\"Slide Reads\" with atomic writes and a \"Min Queue Size\" of " + text(options.minQueueSize) +
                     ", below the queue depth " + text(test.queueDepth) +
                     ", would raise false alarms, because a slid read then meets an atomic write whose read ahead is "
                     "still on its way; set \"Min Queue Size\" to at least the queue depth");
  judge.refuseIf(options.spliceDetection && mix.read == 0,
                 "\"Write Splice Detection\" checks with reads; select read too or switch it off");
  judge.refuseIf(test.deviceInterface != 0 && mix.verify != 0,
                 "a device interface without sense data cannot say that a verify found a difference, so verifies "
                 "would raise false alarms; set it to 0 or leave verify out");
}

void judgeConditionsOf(Judge& judge, const TestDefinition& test, const AgentOptionValues& options) {
  for (const std::string& sentence : judgeConditions(test, options.spliceDetection)) {
    judge.refuseIf(true, sentence);
  }
}

void judgeSkipCommands(Judge& judge, const TestDefinition& test, const AgentOptionValues& options) {
  if (!options.skipCommands) {
    return;
  }
  const CommandMix& mix = test.mix;
  const std::string remedy = "switch \"Use Skip Commands\" off";
  judge.refuseIf(
      mix.writeSame != 0 || mix.trim != 0,
      "skip commands do not go with write-same or trim, which have no skip mask; leave those out or " + remedy);
  if (test.maxBlocks <= 1) {
    return;
  }
  judge.refuseIf(options.embedData && mix.write != 0,
                 "skip commands with embedded data would raise a false alarm at every second block, because the "
                 "stamped LBA counts by one; set \"Embed Data\" to false or " +
                     remedy);
  judge.refuseIf(mix.writeAtomic != 0,
                 "skip commands with atomic writes would raise false alarms, because atomic writes always embed the "
                 "LBA; leave atomic out or " +
                     remedy);
  judge.refuseIf(mix.verify != 0,
                 "skip commands with verifies would fail, because a verify looks for every LBA of its range; leave "
                 "verify out or " +
                     remedy);
}

void judgeLostCommands(Judge& judge, const TestDefinition& test, const AgentOptionValues& options) {
  judge.refuseIf(test.powerToggle != PowerToggle::off && options.powerToggleFreq == 0,
                 "with \"PowerToggle Freq\" 0 every step would cut the power and no command would run; choose at "
                 "least 1 second");
  if (!losesCommands(test)) {
    return;
  }
  judge.refuseIf(options.userDefinedData && test.mix.writeAtomic != 0,
                 "user data with atomic writes that a reset or a power cut interrupts would raise false alarms, "
                 "because the new data of an unfinished one cannot be told from the old; switch \"User Defined "
                 "Data\" off, or leave atomic or the resets out");
  judge.warnIf(options.minQueueSize < test.queueDepth,
               "\"Min Queue Size\" " + text(options.minQueueSize) + " is below the queue depth " +
                   text(test.queueDepth) +
                   ", so a reset can lose a write together with its read-back, which ends the test with an error; "
                   "set it to at least the queue depth");
  judge.warnIf(!options.spliceDetection && writesPlainly(test.mix),
               "without \"Write Splice Detection\" a write that a reset or a power cut takes away is never read "
               "back and its blocks stay in memory; switch it on");
}

void judgeRangeOperations(Judge& judge, const TestDefinition& test) {
  judge.refuseIf(test.usesRangeOperations() && test.queueDepth == TagPool::maxTags,
                 "queue depth " + text(test.queueDepth) +
                     " leaves no place for zone resets and invalidations, which take one beside it; choose at most " +
                     text(TagPool::maxTags - 1) + " or leave them out");
  const bool invalidates = test.invalidateEveryCommands != 0;
  judge.refuseIf(invalidates && test.mix.verify != 0,
                 "invalidations do not go with verifies, because a verify of an invalidated block would be a false "
                 "alarm whether it finds the old content or not; leave verify or invalidations out");
  judge.refuseIf(invalidates && test.mix.writeAtomic != 0,
                 "invalidations do not go with atomic writes, because the content before an unfinished one may come "
                 "back, which would be a false alarm; leave atomic or invalidations out");
}

void judgeZones(Judge& judge, const TestDefinition& test, const Drive& drive, const ZoneMap& zones) {
  if (test.zoneResetEveryCommands == 0) {
    return;
  }
  judge.refuseIf(zones.zoneBlocks() > std::numeric_limits<uint32_t>::max(),
                 "zone resets name their blocks with 32 bits, and the drive's zones have " + text(zones.zoneBlocks()) +
                     "; leave zone resets out");
  judge.refuseIf(zones.tooMany(), "zone resets number the zones with 32 bits, and the LBA range has more of " +
                                      text(zones.zoneBlocks()) +
                                      " blocks each; make the range smaller or leave zone resets out");
  judge.refuseIf(!drive.capabilities().hostManaged && zones.count() == 0,
                 "zone resets need a zone that lies wholly in the LBA range, and zones have " +
                     text(zones.zoneBlocks()) + " blocks; widen the range or leave zone resets out");
}

void judgeConnection(Judge& judge, const TestDefinition& test, const AgentOptionValues& options, const Drive& drive) {
  // With resets it has been said already.
  if (!drive.capabilities().connectionCanBreak || losesCommands(test)) {
    return;
  }
  const std::string why = whyLossEndsTest(test, options);
  judge.warnIf(!why.empty(), "should the connection to the drive be lost, the test ends there, because " + why);
  judge.warnIf(!options.spliceDetection && writesPlainly(test.mix),
               "without \"Write Splice Detection\" a write that a lost connection takes away is never read back and "
               "its blocks stay in memory; switch it on");
}

void judgeAtomicSegments(Judge& judge, const TestDefinition& test, const LbaLimits& limits,
                         const AtomicSegments& segments) {
  if (test.mix.writeAtomic == 0 || !segments.limited()) {
    return;
  }
  judge.refuseIf(legalAtomicBounds(limits, segments).empty(),
                 "the drive writes " + text(segments.leastBlocks) + " to " + text(segments.mostBlocks) +
                     " blocks atomically, a power of two at a multiple of itself, and none of these fits atomic "
                     "bounds of " +
                     text(limits.minAtomicBound) + ".." + text(limits.maxAtomicBound) + ", transfers of " +
                     text(limits.minBlocks) + ".." + text(limits.maxBlocks) + " blocks and the LBA range " +
                     text(limits.firstLba) + ".." + text(limits.endLba) +
                     "; let the bounds include such a power and the transfers a multiple of it, or leave atomic out");
}

void judgeHostManaged(Judge& judge, const TestDefinition& test, const AgentOptionValues& options,
                      const ZoneMap& zones) {
  const std::string drive = "a host-managed drive ";
  const CommandMix& mix = test.mix;
  judge.refuseIf(mix.writeAtomic != 0 || mix.writeSame != 0 || mix.trim != 0,
                 drive +
                     "is written at its zones' write pointers only, and atomic, writesame and trim go anywhere; "
                     "select write alone");
  judge.refuseIf(options.skipCommands,
                 drive + "refuses writes that leave blocks out; switch \"Use Skip Commands\" off");
  judge.refuseIf(test.zoneResetEveryCommands == 0,
                 drive + "takes no more writes once its zones are full; switch zone resets on");
  judge.refuseIf(zones.count() < 2, drive + "needs at least two zones of " + text(zones.zoneBlocks()) +
                                        " blocks wholly in the LBA range, so that one can be written while the other "
                                        "holds what is read back; widen the range");
  judge.refuseIf(test.maxBlocks > zones.zoneBlocks(), "transfers of " + text(test.maxBlocks) +
                                                          " blocks do not fit into a zone of " +
                                                          text(zones.zoneBlocks()) + "; shorten the transfers");
}

}  // namespace

ContractReport checkTest(const TestDefinition& test, const AgentOptionValues& options) {
  Judge judge;
  judge.refuseIf(test.driveAddresses.empty(), "no drive is named; give at least one");
  std::set<std::string> seen;
  for (const std::string& address : test.driveAddresses) {
    const std::string shown = maskedAddress(address);
    const std::string place = shown.substr(0, shown.find(','));
    const bool simulated = place.rfind("sim:", 0) == 0;
    judge.refuseIf(!simulated && !seen.insert(identityOf(address, place)).second,
                   "drive '" + place +
                       "' is named twice, and two threads would overwrite each other's data; name it "
                       "once");
  }
  judgeNumbers(judge, test, options);
  judgeSelection(judge, test, options);
  judgeConditionsOf(judge, test, options);
  judgeSkipCommands(judge, test, options);
  judgeLostCommands(judge, test, options);
  judgeRangeOperations(judge, test);
  return judge.take();
}

TestRange testRange(const TestDefinition& test, const AgentOptionValues& options, const DriveGeometry& drive) {
  if (test.endLba != 0) {
    return {.firstLba = test.firstLba, .endLba = test.endLba};
  }
  const uint64_t headRoom = options.slideReads ? uint64_t{test.maxBlocks - 1} * stepOf(options) : 0;
  const uint64_t last = drive.blocks - std::min(drive.blocks, headRoom);
  if (!test.size.any()) {
    return {.firstLba = test.firstLba, .endLba = last};
  }
  const uint64_t share = test.size.blocksOf(drive);
  const bool fits = test.firstLba <= drive.blocks && share <= drive.blocks - test.firstLba;
  // One that does not fit keeps its end, so that whoever asked for it is told.
  const uint64_t end = test.firstLba + std::min(share, std::numeric_limits<uint64_t>::max() - test.firstLba);
  return {.firstLba = test.firstLba, .endLba = fits ? std::min(end, last) : end};
}

ContractReport checkTestOnDrive(const TestDefinition& test, const AgentOptionValues& options, const Drive& drive) {
  Judge judge;
  const uint64_t blocks = drive.geometry().blocks;
  const TestRange range = testRange(test, options, drive.geometry());
  const std::string rangeText = text(range.firstLba) + ".." + text(range.endLba);
  const uint64_t longest = uint64_t{test.maxBlocks} * stepOf(options);
  const uint64_t size = range.endLba > range.firstLba ? range.endLba - range.firstLba : 0;
  const uint64_t headRoom = longest - stepOf(options);

  const bool beginsBehind = test.firstLba >= blocks && blocks != 0;
  judge.refuseIf(beginsBehind, "the LBA range " + text(test.firstLba) + ".. begins behind the drive's " + text(blocks) +
                                   " blocks; choose a start below that");
  judge.refuseIf(!beginsBehind && range.endLba > blocks, "the LBA range " + rangeText + " ends behind the drive's " +
                                                             text(blocks) + " blocks; choose an end of at most that");
  judge.refuseIf(!beginsBehind && size < longest, "the LBA range " + rangeText + " has no room for a command over " +
                                                      text(longest) + " LBAs of " + text(drive.geometry().blockSize) +
                                                      " bytes; widen it or shorten the transfers");
  judge.refuseIf(options.slideReads && range.endLba <= blocks && blocks - range.endLba < headRoom,
                 "\"Slide Reads\" reads up to " + text(headRoom) + " blocks behind the LBA range " + rangeText +
                     ", past the drive's end; end the range at " + text(blocks - std::min(blocks, headRoom)) +
                     " or before");
  judge.refuseIf(
      test.powerToggle == PowerToggle::withoutSync && drive.capabilities().volatileCache && !test.forceUnitAccess,
      "a power cut would take acknowledged writes from the drive's volatile cache, which is no fault of "
      "the drive; flush it before each cut, or use forced unit access");
  const ZoneMap zones(drive.geometry(), range.firstLba, range.endLba);
  judgeZones(judge, test, drive, zones);
  if (drive.capabilities().hostManaged) {
    judgeHostManaged(judge, test, options, zones);
  }
  judgeConnection(judge, test, options, drive);
  judgeAtomicSegments(judge, test, lbaLimits(test, options, range), drive.capabilities().atomicSegments);
  const uint64_t average = (uint64_t{test.minBlocks} + test.maxBlocks + 1) / 2;
  const uint64_t waiting = average * stepOf(options) * options.maxQueueSize;
  judge.warnIf(size >= longest && waiting > size,
               "the LBA range " + rangeText + " is small for \"Max Queue Size\" " + text(options.maxQueueSize) +
                   ", so writes pile up on the same blocks and memory and time grow; widen it to at least " +
                   text(waiting) + " blocks or lower the queue size");
  return judge.take();
}

std::string whyLossEndsTest(const TestDefinition& test, const AgentOptionValues& options) {
  if (options.userDefinedData && test.mix.writeAtomic != 0) {
    return "with user data the new content of an unfinished atomic write cannot be told from the old; switch \"User "
           "Defined Data\" off, or leave atomic out";
  }
  if (options.minQueueSize < test.queueDepth) {
    return "with \"Min Queue Size\" " + text(options.minQueueSize) + " below the queue depth " + text(test.queueDepth) +
           " a write may be lost together with its read-back, which the agent cannot account for; set it to at least "
           "the queue depth";
  }
  return {};
}

LbaLimits lbaLimits(const TestDefinition& test, const AgentOptionValues& options, const TestRange& range) {
  return {.firstLba = range.firstLba,
          .endLba = range.endLba,
          .minBlocks = test.minBlocks,
          .maxBlocks = test.maxBlocks,
          .lbaStep = stepOf(options),
          .minAtomicBound = test.minAtomicBound,
          .maxAtomicBound = test.maxAtomicBound};
}

std::string missingCapability(const TestDefinition& test, const Drive& drive, const std::string& address) {
  const DriveCapabilities& can = drive.capabilities();
  std::string missing;
  const auto need = [&missing](bool needed, bool offered, const char* what) {
    if (needed && !offered) {
      missing += (missing.empty() ? "" : ", ") + std::string(what);
    }
  };
  need(test.mix.writeAtomic != 0, can.atomicWrite, "atomic writes");
  need(test.mix.writeSame != 0, can.writeSame, "write-same");
  need(test.mix.trim != 0, can.trim, "trim");
  need(test.mix.verify != 0, can.verify, "verify with byte check");
  need(test.powerToggle == PowerToggle::withSync, can.syncCache, "cache flush");
  need(test.powerToggle != PowerToggle::off, can.powerToggle, "power toggle");
  need(test.resetEveryCommands != 0, can.deviceReset, "device reset");
  need(test.zoneResetEveryCommands != 0, can.zoneReset && drive.geometry().zoneBlocks != 0, "zone resets");
  need(test.invalidateEveryCommands != 0, can.invalidate, "invalidation of ranges");
  if (missing.empty()) {
    return {};
  }
  return "drive '" + maskedAddress(address) + "' does not offer " + missing +
         "; leave that out or use another drive; it is: " + drive.description();
}

}  // namespace corvane::host
