#include <new>

#include "ConfigData.h"
#include "Corvane.h"
#include "vdl/ConfigManager.h"
#include "vdl/Status.h"

namespace vdl {

namespace {

// The help texts are what test authors have in their notes; their slips stay as they are.
constexpr const char* minQueueSizeHelp = "The minimum number of outstanding writes before issuing a read command";
constexpr const char* maxQueueSizeHelp =
    "The maximum number of outstanding writes before a read command must be issued. supporting more operations "
    "consumes additional memory at the rate of a dozen or so bytes per operation";
constexpr const char* randomSeedHelp = "Random seed to use. If set to zero, uses the current system time for a seed";
constexpr const char* bucketCountHelp =
    "The number of data buckets to pre-generate.  More buckets allow larger transfers and increases the randomness "
    "of transfer data.  Memory consumed is one sector of data per bucket, usually Bucket_Count * 512 bytes";
constexpr const char* traceDepthHelp =
    "If non-zero set the number of traced commands to the given number.  If zero, automatically choose a size based "
    "on MaxQueueSize";
constexpr const char* randomSelectionHelp =
    "If true, read and write commands are chosen at random, keeping the distance between MinQueueSize and "
    "MaxQueueSize.  If false, reads and writes will alternate at MaxQueueSize-MinQueueSize operations per command";
constexpr const char* writeSpliceDetectionHelp =
    "If true, write splice detection will be enabled. This will issue extra reads to areas where writes were "
    "previously issued, but were aborted or returned a non-medium hard error. This will also cause VDL to stop with "
    "a VDR_ERR_WRITE_SPLICE_DETECTED error if the read returns a hard error. Splice check reads are retried once if "
    "aborted.";
constexpr const char* slideReadsHelp =
    "If true, reads will not always be at the same LBA as the write. Also, with variable transfer lengths, read "
    "xferlen may not match write xferlen";
constexpr const char* showstopOnMiscompareHelp =
    "If true, this plugin will attempt to showstop the drive immediately after detecting a miscompare. By default, "
    "this is disabled. The showstop is performed by entering special mode and then a self-init POR. This may not "
    "work on all drives.";
constexpr const char* userDefinedDataHelp =
    "If true, the user has specified that they wish to use defined data. If false, which is default, the program "
    "will use random data.";
constexpr const char* useSkipCommandsHelp =
    "If true, Corvane will consider all commands as skip commands with an alternating skip mask";
constexpr const char* alwaysDumpSequenceHelp =
    "If true, always dump the command sequence at the end of a test, even if no miscompare error occurred";
constexpr const char* powerToggleFreqHelp = "The frequency in seconds of how often power will be cut from the drive.";
constexpr const char* readConditionHelp =
    "The condition to apply when a Read needs to be executed. This is a read command, if multile read commands are "
    "setup, Corvane will check which condition is set to chose which command to use.At least one write command "
    "Condition must be setup.";
constexpr const char* verifyConditionHelp =
    "The condition to apply when a Verify needs to be executed. This is a read command, if multile read commands are "
    "setup, Corvane will check which condition is set to chose which command to use.At least one write command "
    "Condition must be setup.";
constexpr const char* writeConditionHelp =
    "The condition to apply when a Write needs to be executed. This is a write command, if multiple write commands "
    "are setup, Corvane will check which condition is set to choose which write command to use. This means a "
    "RandomCondition can be used before Corvane to selected between write commands. At least one write command "
    "Condition must be setup.";
constexpr const char* writeAtomicConditionHelp =
    "The condition to apply when a WriteAtomic needs to be executed. This is a write command, if multiple write "
    "commands are setup, Corvane will check which condition is set to choose which write command to use. This means "
    "a RandomCondition can be used before Corvane to selected between write commands. At least one write command "
    "Condition must be setup.";
constexpr const char* writeSameConditionHelp =
    "The condition to apply when a WriteSame needs to be executed. This is a write command, if multiple write "
    "commands are setup, Corvane will check which condition is set to choose which write command to use. This means "
    "a RandomCondition can be used before Corvane to selected between write commands. At least one write command "
    "Condition must be setup.";
constexpr const char* trimConditionHelp =
    "The condition to apply when a Trim needs to be executed. This is a write command, if multiple write commands "
    "are setup, Corvane will check which condition is set to choose which write command to use. This means a "
    "RandomCondition can be used before Corvane to selected between write commands. At least one write command "
    "Condition must be setup.";
constexpr const char* e2eConditionHelp =
    "The condition to signal that Corvane needs to generate write data for a WRPROTECT enabled write command. This "
    "should be set before Corvane executes, then a write with WRPROTECT should be available after Corvane.";
constexpr const char* powerToggleConditionHelp =
    "The condition to apply to perform a PowerToggle. This variable must be setup by the test.";
constexpr const char* syncCacheConditionHelp =
    "The condition to apply to perform a SyncCache. If this is set, a SyncCache will be performed before each power "
    "toggle. This variable must be setup by the test.";
constexpr const char* miscompareOutputPathHelp =
    "The start of a path where miscompare data should be dumped.  This variable forms the base-name for two paths.  "
    "For the drive data, '_drive.bin' is appended to the path.  For the reference data, '_reference.bin is appended "
    "to the path.  By default, the plugin will use ./miscompare as the output path";
constexpr const char* dataBufferHelp = "The user data.";
constexpr const char* embedDataHelp =
    "Corvane embeds certain data into the write data. On by default, this can be disabled by setting this to "
    "false.Some test features require this to be enabled.";
constexpr const char* embedLBAHelp = "Bool used to determine if write data should have the LBA embedded.";
constexpr const char* embedLBADeprecation =
    "Corvane - Embed LBA - This option is deprecated and ignored if True. If False, 'Embed Data' will be set to "
    "False. Use 'Embed Data' instead.";
constexpr const char* coldStorageHelp = "Cold Storage mode. Must be True iff using the avalanche workload.";
constexpr const char* coldStorageDeprecation =
    "Corvane - Cold Storage - This option is deprecated and ignored. This option is no longer needed as it is "
    "handled internally.";

/// Registers every option in the order in which users list them; the first failure ends the registration.
int registerOptions(ConfigManager& manager, Corvane::ConfigData& config) {
  int result = status::ok;
  const auto keep = [&result](int answer) {
    result = answer;
    return answer == status::ok;
  };
  [[maybe_unused]] const bool complete =
      keep(manager.addU32("Min Queue Size", &config.minQueueSize, 1, 1000000, minQueueSizeHelp)) &&
      keep(manager.addU32("Max Queue Size", &config.maxQueueSize, 1, 1000000, maxQueueSizeHelp)) &&
      keep(manager.addU32("Random Seed", &config.randomSeed, 0, 0xFFFFFFFF, randomSeedHelp)) &&
      keep(manager.addU32("Bucket Count", &config.bucketCount, 1, 524288, bucketCountHelp)) &&
      keep(manager.addU32("Trace Depth", &config.traceDepth, 0, 16000000, traceDepthHelp)) &&
      keep(manager.addBool("Random Selection", &config.randomSelection, randomSelectionHelp)) &&
      keep(manager.addBool("Write Splice Detection", &config.writeSpliceDetection, writeSpliceDetectionHelp)) &&
      keep(manager.addBool("Slide Reads", &config.slideReads, slideReadsHelp)) &&
      keep(manager.addBool("Showstop on Miscompare", &config.showstopOnMiscompare, showstopOnMiscompareHelp)) &&
      keep(manager.addBool("User Defined Data", &config.userDefinedData, userDefinedDataHelp)) &&
      keep(manager.addBool("Use Skip Commands", &config.useSkipCommands, useSkipCommandsHelp)) &&
      keep(manager.addBool("Always Dump Sequence", &config.alwaysDumpSequence, alwaysDumpSequenceHelp)) &&
      keep(manager.addU32("PowerToggle Freq", &config.powerToggleFreq, 0, 1000000, powerToggleFreqHelp)) &&
      keep(manager.addCondition("Read Condition", &config.readCondition, readConditionHelp)) &&
      keep(manager.addCondition("Verify Condition", &config.verifyCondition, verifyConditionHelp)) &&
      keep(manager.addCondition("Write Condition", &config.writeCondition, writeConditionHelp)) &&
      keep(manager.addCondition("WriteAtomic Condition", &config.writeAtomicCondition, writeAtomicConditionHelp)) &&
      keep(manager.addCondition("WriteSame Condition", &config.writeSameCondition, writeSameConditionHelp)) &&
      keep(manager.addCondition("Trim Condition", &config.trimCondition, trimConditionHelp)) &&
      keep(manager.addCondition("E2E Condition", &config.e2eCondition, e2eConditionHelp)) &&
      keep(manager.addCondition("PowerToggle Condition", &config.powerToggleCondition, powerToggleConditionHelp)) &&
      keep(manager.addCondition("SyncCache Condition", &config.syncCacheCondition, syncCacheConditionHelp)) &&
      keep(manager.addString("Miscompare Output Path", &config.miscompareOutputPath, miscompareOutputPathHelp)) &&
      keep(manager.addBuffer("Data Buffer", &config.dataBuffer, dataBufferHelp)) &&
      keep(manager.addBool("Embed Data", &config.embedData, embedDataHelp)) &&
      keep(manager.addBool("Embed LBA", &config.embedLBA, embedLBAHelp)) &&
      keep(manager.deprecate("Embed LBA", embedLBADeprecation)) &&
      keep(manager.addBool("Cold Storage", &config.coldStorage, coldStorageHelp)) &&
      keep(manager.deprecate("Cold Storage", coldStorageDeprecation));
  return result;
}

}  // namespace

int Corvane::initConfigData(ConfigManager* manager) noexcept {
  auto* config = new (std::nothrow) ConfigData;
  if (config == nullptr) {
    return status::outOfMemory;
  }
  const int registered = manager->registerConfigData(config, sizeof(ConfigData));
  if (registered != status::ok) {
    delete config;
    return registered;
  }
  return registerOptions(*manager, *config);
}

void Corvane::freeConfigData(void* configData) noexcept { delete static_cast<ConfigData*>(configData); }

}  // namespace vdl
