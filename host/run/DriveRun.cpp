#include "host/run/DriveRun.h"

#include <algorithm>
#include <charconv>
#include <exception>
#include <new>
#include <string_view>
#include <utility>

#include "host/base/CpuList.h"
#include "host/base/TimeSlice.h"
#include "host/drive/DriveAddress.h"
#include "host/drive/DriveError.h"
#include "host/ostra/DeviceTable.h"
#include "host/run/AgentFiles.h"
#include "host/run/AtomicSegmentAgent.h"
#include "host/run/ConfigurationError.h"
#include "vdl/Status.h"

namespace corvane::host {
namespace {

constexpr std::string_view outOfMemory =
    "out of memory; free some, or lower the queue depth, the transfer length, \"Bucket Count\" or \"Max Queue Size\"";
constexpr size_t reservedText = 256;
static_assert(outOfMemory.size() < reservedText);
constexpr uint64_t longestRatePauseUs = 20'000;  ///< so that a stop or a time limit is noticed soon

/// The LBA that a line of the agent names, as in "Write Splice Detected at LBA 0x…".
std::optional<uint64_t> lbaIn(const std::string& line) {
  constexpr std::string_view before = "LBA 0x";
  const size_t at = line.find(before);
  if (at == std::string::npos) {
    return std::nullopt;
  }
  const char* begin = line.data() + at + before.size();
  uint64_t lba = 0;
  const auto [end, error] = std::from_chars(begin, line.data() + line.size(), lba, 16);
  return error == std::errc() && end != begin ? std::optional(lba) : std::nullopt;
}

bool isDriveError(const std::exception_ptr& failure) {
  try {
    std::rethrow_exception(failure);
  } catch (const DriveError&) {
    return true;
  } catch (...) {
    return false;
  }
}

bool limitReached(uint64_t limit, uint64_t count) { return limit != 0 && count >= limit; }

}  // namespace

DriveRun::DriveRun(const RunContext& context, uint32_t index, std::string name, const std::string& address,
                   std::unique_ptr<Drive> drive, std::unique_ptr<FaultLedger> ledger)
    : context_(context),
      index_(index),
      ledger_(std::move(ledger)),
      drive_(std::move(drive)),
      geometry_(drive_->geometry()),
      range_(testRange(context.test, context.options, geometry_)),
      log_(index, context.observer),
      recorder_(*drive_) {
  result_.error.reserve(reservedText);  // what ends a test for want of memory must be said without any
  result_.name = std::move(name);
  result_.address = maskedAddress(address);
  result_.description = drive_->description();
  if (context.test.journalDepth != 0) {
    journal_ = std::make_shared<CommandJournal>(context.test.journalDepth, context.test.queueDepth, context.clock);
    result_.journal = journal_;
  }
}

void DriveRun::run() noexcept {
  beganUs_ = context_.clock.steadyUs();
  setCurrentDeviceIndex(index_);
  try {
    pin();
    askForTurns();
    runTest();
  } catch (const DriveError& error) {
    failed(RunStatus::drive, error.what());
  } catch (const ConfigurationError& error) {
    failed(RunStatus::configuration, error.what());
  } catch (const std::bad_alloc&) {
    failed(RunStatus::internal, outOfMemory);
  } catch (const std::exception& error) {
    failed(RunStatus::internal, error.what());
  }
  tellEnd();
}

void DriveRun::tellEnd() {
  try {
    conclude();
  } catch (const std::bad_alloc&) {
    failed(RunStatus::internal, outOfMemory);
  }
  ended_.store(true, std::memory_order_release);
  if (const std::optional<Finding> finding = findingOf(result_)) {
    context_.observer->onFinding(index_, *finding);
  }
  context_.observer->onDriveEnd(index_, result_);
}

void DriveRun::pin() const {
  const std::vector<uint32_t>& cpus = context_.test.pinnedCpus;
  if (!cpus.empty() && !pinThisThread(cpus[index_ % cpus.size()])) {
    throw ConfigurationError("the drive's thread cannot be pinned to CPU " +
                             std::to_string(cpus[index_ % cpus.size()]) +
                             " any more; look whether it is still online, or leave pinning out");
  }
}

void DriveRun::askForTurns() const {
  // Any other drive would stand idle, with all its commands answered, until its thread runs again.
  if (context_.turnUs != 0 && drive_->capabilities().worksInCalls) {
    askForTimeSlice(context_.turnUs);
  }
}

void DriveRun::conclude() {
  result_.totals = totals();
  result_.messages = log_.messages();
  checkFiles();
  if (foundSomething()) {
    result_.findingLba = findingLba();
  }
  if (ledger_ != nullptr) {
    result_.injections = ledger_->injections();
  }
  result_.elapsedMs = (context_.clock.steadyUs() - beganUs_) / 1000;
}

void DriveRun::checkFiles() {
  AgentMessages& files = result_.messages;
  const auto note = [&files](const std::string& path, const std::string& what) {
    if (!what.empty()) {
      files.incomplete.push_back("'" + path + "' " + what);
    }
  };
  for (const std::string& report : files.reports) {
    note(report, whatIsMissingOfReport(report));
  }
  for (const std::string& dump : files.dumps) {
    note(dump, whatIsMissingOfDump(dump, geometry_.blockSize));
  }
}

DriveThreadHost::Settings DriveRun::threadSettings() {
  DriveThreadHost::Settings settings;
  settings.name = result_.name;
  settings.blockSize = geometry_.blockSize;
  settings.protectionEnabled = geometry_.protectionBytes != 0;
  settings.protectionBytes = geometry_.protectionBytes;
  settings.physicalExponent = geometry_.physicalExponent;
  settings.queueDepth = context_.test.queueDepth;
  settings.ostraDevice = recorder_.handle();
  settings.log = [this](int level, std::string_view text) { log_.add(level, text); };
  return settings;
}

StepSettings DriveRun::stepSettings() {
  const TestDefinition& test = context_.test;
  StepSettings settings;
  settings.mix = test.mix;
  settings.conditions = test.conditions;
  settings.e2ePercent = test.e2ePercent;
  settings.skipCommands = context_.options.skipCommands;
  settings.forceUnitAccess = test.forceUnitAccess;
  settings.resetEveryCommands = test.resetEveryCommands;
  settings.ranges = rangeSettings();
  settings.hostManaged = drive_->capabilities().hostManaged;
  settings.deviceInterface = test.deviceInterface;
  settings.lossEndsTest = whyLossEndsTest(test, context_.options);
  settings.readDataDelivered = test.readDataDelivered;
  settings.minBlocks = test.minBlocks;
  settings.maxBlocks = test.maxBlocks;
  settings.minLba = range_.firstLba;
  settings.maxLba = range_.endLba - 1;
  settings.selectorSeed = deriveSeed(test.seed, "selector", index_);
  settings.zoneWriterSeed = deriveSeed(test.seed, "zone writer", index_);
  settings.watchdogMs = test.watchdogMs;
  settings.checks = checkRules();
  settings.ledger = ledger_.get();
  settings.journal = journal_.get();
  settings.observer = context_.observer;
  settings.calls = &calls_;
  settings.driveIndex = index_;
  return settings;
}

CheckRules DriveRun::checkRules() const {
  const AgentOptionValues& options = context_.options;
  return {
      .skipCommands = options.skipCommands,
      .slideReads = options.slideReads,
      .spliceDetection = options.spliceDetection,
      .randomSelection = options.randomSelection,
      .minQueueSize = options.minQueueSize,
      .maxQueueSize = options.maxQueueSize,
      .readsSense = context_.test.deviceInterface == 0,
      .longestSpan = rangeSettings().any() ? 0 : uint64_t{context_.test.maxBlocks} * (options.skipCommands ? 2U : 1U),
      .listener = context_.worthListener};
}

RangeSettings DriveRun::rangeSettings() const {
  const TestDefinition& test = context_.test;
  RangeSettings settings;
  settings.zoneResetEveryCommands = test.zoneResetEveryCommands;
  settings.invalidateEveryCommands = test.invalidateEveryCommands;
  settings.zones = ZoneMap(geometry_, range_.firstLba, range_.endLba);
  settings.firstLba = range_.firstLba;
  settings.endLba = range_.endLba;
  settings.maxBlocks = test.maxBlocks;
  settings.zoneResetSeed = deriveSeed(test.seed, "zone reset", index_);
  settings.invalidateSeed = deriveSeed(test.seed, "invalidate", index_);
  settings.journal = journal_.get();
  return settings;
}

std::unique_ptr<LbaAgent> DriveRun::makeLbaSource() const {
  const TestDefinition& test = context_.test;
  const LbaLimits limits = lbaLimits(test, context_.options, range_);
  std::unique_ptr<LbaAgent> agent = makeLbaAgent(test.lbaAgent, limits, deriveSeed(test.seed, "lba", index_));
  const AtomicSegments& segments = drive_->capabilities().atomicSegments;
  if (test.mix.writeAtomic == 0 || !segments.limited()) {
    return agent;
  }
  return std::make_unique<AtomicSegmentAgent>(std::move(agent), limits, segments);
}

void DriveRun::runTest() {
  DriveThreadHost host(threadSettings());
  host.thread().timestampUs = context_.clock.wallUs();
  try {
    runAgent(host);
  } catch (...) {
    // The drive must be done with the agent's and the loop's memory before either is freed; runStarted saw to the
    // commands, and nothing else has been submitted.
    if (host.driveData() != nullptr) {
      context_.agent.freeDriveData(host.driveData());
    }
    throw;
  }
  if (host.driveData() != nullptr) {
    context_.agent.freeDriveData(host.driveData());
  }
}

void DriveRun::runAgent(DriveThreadHost& host) {
  const std::unique_ptr<LbaAgent> lbaSource = makeLbaSource();
  StepLoop loop(context_.agent, context_.configData, host, *drive_, *lbaSource, stepSettings(), counters_,
                context_.clock);
  vdl::DriveThread& thread = host.thread();
  if (const int32_t status = context_.agent.initDriveData(&thread); status != 0) {
    agentEnded("initDriveData", status);
    return;
  }
  thread.timestampUs = context_.clock.wallUs();
  if (const int32_t status = context_.agent.startTest(&thread, context_.configData, host.driveData(), 0); status != 0) {
    agentEnded("startTest", status);
    return;
  }
  runStarted(host, loop);
}

void DriveRun::runStarted(DriveThreadHost& host, StepLoop& loop) {
  std::exception_ptr failure;
  try {
    loop.prepareDrive();
    int32_t status = stepUntilEnd(loop);
    if (status == 0) {
      status = loop.drain();
    }
    if (status != 0) {
      noteMoment(loop);
      agentEnded("execute", status);
      loop.abandon();
    }
  } catch (...) {
    failure = std::current_exception();
  }
  if (failure != nullptr && !foundSomething()) {
    // Its outstanding commands point into memory that is about to be freed.
    failure = closeAfter(failure, loop);
  }
  context_.agent.stopTest(&host.thread(), context_.configData, host.driveData(), 0);
  if (failure != nullptr && foundSomething()) {
    // Only now, as the agent's files about a finding must not wait for a drive that does not answer.
    failure = closeAfter(failure, loop);
  }
  if (failure != nullptr) {
    std::rethrow_exception(failure);
  }
  if (journal_ != nullptr && foundSomething()) {
    gatherEvidence(host, loop);
  }
}

std::exception_ptr DriveRun::closeAfter(const std::exception_ptr& failure, StepLoop& loop) {
  recorder_.forgetDrive();
  std::exception_ptr goOnWith = failure;
  if (isDriveError(failure)) {
    result_.unanswered = loop.hangWatch().hanging();
  }
  hang_ = loop.hangWatch().describe(result_.unanswered);
  remedy_ = loop.hangWatch().remedy();
  if (!hang_.empty()) {
    goOnWith = std::make_exception_ptr(DriveHung(hang_ + "; " + resetHungDrive() + "; " + remedy_));
  }
  {
    const DriveCalls::Inside inside(&calls_, "the closing of the drive");
    drive_.reset();
  }
  loop.driveIsGone();
  return goOnWith;
}

std::string DriveRun::resetHungDrive() {
  const uint64_t resetUs = context_.clock.steadyUs();
  try {
    const DriveCalls::Inside inside(&calls_, StepLoop::resetCall);
    drive_->reset();
  } catch (const std::exception& error) {
    return "its reset failed (" + std::string(error.what()) + "), so they may still be carried out";
  }
  counters_.resets.add(1);
  counters_.outstanding.set(0);
  context_.observer->onReset(index_);
  return "a reset of " + secondsText(context_.clock.steadyUs() - resetUs) + " took them back";
}

bool DriveRun::giveUpIfHung(std::chrono::steady_clock::time_point now) {
  const uint64_t call = calls_.current();
  if (call == 0 || call != seenCall_) {
    seenCall_ = call;
    seenAt_ = now;
    return false;
  }
  const auto waited = std::chrono::duration_cast<std::chrono::microseconds>(now - seenAt_);
  if (static_cast<uint64_t>(waited.count()) / 1000 < context_.test.watchdogMs || !calls_.giveUp(call)) {
    return false;
  }
  const std::string noReturn = std::string(calls_.what()) + " has not ended for " +
                               secondsText(static_cast<uint64_t>(waited.count())) +
                               ", so what it was sent may still be carried out; ";
  if (hang_.empty()) {
    failed(RunStatus::drive,
           "the drive hangs: " + noReturn +
               "check the drive and its connection, or set the watchdog higher if it may take longer");
  } else {
    failed(RunStatus::drive, hang_ + "; " + noReturn + remedy_);
  }
  tellEnd();
  return true;
}

std::optional<uint64_t> DriveRun::findingLba() const {
  return recorder_.lba() ? recorder_.lba() : lbaIn(result_.error);
}

void DriveRun::gatherEvidence(DriveThreadHost& host, StepLoop& loop) {
  const std::optional<uint64_t> lba = findingLba();
  if (!lba) {
    return;
  }
  auto evidence = std::make_shared<FindingEvidence>();
  evidence->agentStatus = result_.agentStatus;
  evidence->agentError = result_.error;
  evidence->lba = *lba;
  evidence->foundUs = foundUs_;
  evidence->foundAfter = result_.moment.commandNumber;
  evidence->geometry = geometry_;
  evidence->embedded = context_.options.embedData;
  evidence->journal = journal_;
  const AgentMessages messages = log_.messages();
  readAgentFiles(*evidence, messages.reports, messages.dumps);
  evidence->verifyData = loop.verifiedData();
  evidence->verifyLba = loop.verifiedLba();
  // From the end of the test on "WriteData" shows the pool.
  const vdl::Buffer& pool = host.variables().buffer("WriteData");
  evidence->pool.assign(pool.data, pool.data + pool.size);
  const RereadRange range = rereadRange(*journal_, *lba, range_.firstLba, range_.endLba);
  evidence->rereadFirst = range.firstLba;
  try {
    for (uint64_t block = range.firstLba; block < range.endLba; ++block) {
      evidence->reread.push_back(loop.readNow(block, 1));
    }
  } catch (const DriveError&) {
    // It has stopped answering; what was read before counts. A read that is still under way has the loop's memory.
    closeAfter(std::current_exception(), loop);
  }
  result_.evidence = std::move(evidence);
}

int32_t DriveRun::stepUntilEnd(StepLoop& loop) {
  const TestDefinition& test = context_.test;
  const uint64_t beganUs = context_.clock.steadyUs();
  while (!context_.stop.load(std::memory_order_relaxed)) {
    if (limitReached(test.commandLimit, loop.commandsIssued()) || limitReached(test.stepLimit, steps_)) {
      break;
    }
    if (test.timeLimitMs != 0 || test.commandsPerSecond != 0) {
      const uint64_t elapsed = elapsedUs(beganUs);
      if (test.timeLimitMs != 0 && elapsed / 1000 >= test.timeLimitMs) {
        break;
      }
      if (mustWait(loop, elapsed)) {
        continue;
      }
    }
    ++steps_;
    if (const int32_t status = loop.step(); status != 0) {
      return status;
    }
  }
  return 0;
}

uint64_t DriveRun::elapsedUs(uint64_t beganUs) {
  // The journal looked at the clock in the last step, if anything happened there.
  if (journal_ != nullptr && context_.clock.runsByItself() && journal_->looks() != looksSeen_) {
    looksSeen_ = journal_->looks();
    const uint64_t nowUs = journal_->beganUs() + journal_->latestUs();
    return nowUs - std::min(nowUs, beganUs);
  }
  return context_.clock.steadyUs() - beganUs;
}

bool DriveRun::mustWait(const StepLoop& loop, uint64_t elapsedUs) {
  const uint64_t rate = context_.test.commandsPerSecond;
  if (rate == 0) {
    return false;
  }
  const uint64_t dueUs = loop.commandsIssued() * 1'000'000 / rate;
  if (dueUs <= elapsedUs) {
    return false;
  }
  drive_->sendQueued();
  context_.clock.pause(std::min(dueUs - elapsedUs, longestRatePauseUs));
  return true;
}

void DriveRun::noteMoment(const StepLoop& loop) {
  result_.moment = {.commandNumber = loop.commandsIssued(),
                    .step = steps_,
                    .elapsedMs = (context_.clock.steadyUs() - beganUs_) / 1000};
  foundUs_ = journal_ != nullptr ? journal_->nowUs() : 0;
}

void DriveRun::agentEnded(const char* callback, int32_t status) {
  if (result_.agentStatus != 0) {
    return;
  }
  result_.agentStatus = status;
  std::string error = log_.firstError();
  if (error.empty() && status == vdl::status::outOfMemory) {
    error = outOfMemory;
  } else if (error.empty()) {
    error = std::string("the agent's ") + callback + " returned " + std::to_string(status);
  }
  failed(statusOfAgentCode(status), error);
}

void DriveRun::failed(RunStatus status, std::string_view error) {
  result_.status = worse(result_.status, status);
  if (result_.error.empty()) {
    result_.error = error;
  }
}

}  // namespace corvane::host
