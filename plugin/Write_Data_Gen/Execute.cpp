#include <cassert>
#include <utility>

#include "CallbackGuard.h"
#include "Compare.h"
#include "Completion.h"
#include "OutsideEvents.h"
#include "ReferenceAudit.h"
#include "Scheduling.h"
#include "Step.h"
#include "TablePrefetch.h"

namespace vdl {

namespace agent {

namespace {

/// The initialisation that waits for the first step runs once, whatever comes of it.
int32_t runFirstExecute(Step& step) {
  if (!step.data.firstExecute) {
    return status::ok;
  }
  const auto call = std::exchange(step.data.firstExecute, nullptr);
  return call(&step.thread, &step.data, &step.config);
}

/// Hands the finished command to the handler of what was issued on its tag.
int32_t absorbCompletion(Step& step) {
  DriveData& data = step.data;
  data.syncDone = false;
  const uint32_t tag = *data.lastTagID;
  const CommandTrace::TagSlot slot = data.trace->slot(tag);
  const FinishedCommand finished{tag, *data.lastStatusByte, slot.lba, slot.xfer_len};
  if (finished.status == noStatus || data.miscompareSeen) {
    return status::ok;
  }
  switch (slot.type) {
    case TraceType::WriteIssued:
    case TraceType::WriteAtomicIssued:
    case TraceType::WriteSameIssued:
    case TraceType::TrimIssued:
      return recvWrite(step, finished);
    case TraceType::PreReadIssued:
      return recvPreRead(step, finished);
    case TraceType::ReadIssued:
      return recvRead(step, finished);
    case TraceType::VerifyIssued:
      return recvVerify(step, finished);
    case TraceType::SyncIssued:
      recvSync(step, finished);
      return status::ok;
    default:
      // Completed before, by a reset for instance.
      return status::ok;
  }
}

int32_t work(Step& step) {
  const TablePrefetch table(step.data);
  step.data.sectorsAhead.prefetchRest();
  absorbPowerOn(step);
  absorbRangeEvents(step);
  if (const int32_t result = absorbCompletion(step); result != status::ok) {
    return result;
  }
  if (!step.data.comparableReads.empty()) {
    if (const int32_t result = doCompares(step); result != status::ok) {
      return result;
    }
  }
  const int32_t prepared = prepareNextCommand(step);
  table.askForNext();
  return prepared;
}

/// Debug builds check the table's balance after every step that went well.
void audit([[maybe_unused]] const Step& step) {
  assert(!step.data.referencesBalanced || auditReferences(step.data).empty());
}

}  // namespace
}  // namespace agent

int Corvane::execute(DriveThread* thread, const void* config, void* driveData) {
  auto& data = *static_cast<DriveData*>(driveData);
  try {
    const int result = agent::guardMemory(*thread, "execute", [&]() -> int {
      agent::Step step{*thread, data, *static_cast<const ConfigData*>(config)};
      if (const int32_t first = agent::runFirstExecute(step); first != status::ok) {
        return first;
      }
      const int32_t worked = agent::work(step);
      if (worked != status::ok) {
        return agent::logFailure(step, "execute", worked);
      }
      agent::audit(step);
      return status::ok;
    });
    data.referencesBalanced = data.referencesBalanced && result == status::ok;
    return result;
  } catch (...) {
    // What the step had begun is not taken back.
    data.referencesBalanced = false;
    throw;
  }
}

}  // namespace vdl
