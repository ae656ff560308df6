#include "Completion.h"
#include "FindByTag.h"
#include "HardError.h"
#include "LbaSpan.h"
#include "Miscompare.h"

namespace vdl::agent {

namespace {

/// What the table says about the blocks of a verify.
struct Expectation {
  bool miscompare;             ///< the drive must report a miscompare
  bool mayMiscompare = false;  ///< it may
  int32_t status = status::ok;
};

Expectation finishReads(Step& step, const VerifySent& verify) {
  Expectation expected{verify.expectMiscompare != 0};
  // A verify has no skip mask: it covers every LBA.
  const LbaSpan span = spanOf(verify.lba, verify.xferLength, false);
  for (uint64_t lba = span.first; lba < span.end && expected.status == status::ok; ++lba) {
    const PeekResult state = step.data.atomicHash.readFinished(verify.cmdId, lba, false);
    if (state.status != status::ok) {
      step.log().logf(2, "Could not find Read LBA in Hash Table at LBA 0x%016lx", static_cast<unsigned long>(lba));
      expected.status = state.status;
    }
    expected.mayMiscompare =
        expected.mayMiscompare || state.block_num == block_num::unknown || state.block_type == BlockType::Atomic;
    expected.miscompare = expected.miscompare || state.invalidated;
  }
  return expected;
}

/// MISCOMPARE DURING VERIFY OPERATION.
bool isVerifyMiscompare(const SenseResult& sense) {
  return sense.hard && sense.kcq.key == 0x0E && sense.kcq.code == 0x1D && sense.kcq.qual == 0x00;
}

int32_t judge(Step& step, const VerifySent& verify, const Expectation& expected, bool driveMiscompare) {
  const auto lba = static_cast<unsigned long long>(verify.lba);
  if (driveMiscompare && !expected.mayMiscompare) {
    step.log().logf(2, "Miscompare Detected with a Verify command at LBA 0x%016llX Transfer Length 0x%03X", lba,
                    verify.xferLength);
    triggerMiscompare(step, verify.lba, 0, 0, verify.cmdId, expected.miscompare);
    return status::miscompare;
  }
  if (!driveMiscompare && expected.miscompare) {
    step.log().logf(2, "Miscompare was expected from Verify command at LBA 0x%016llX Transfer Length 0x%03X", lba,
                    verify.xferLength);
    triggerMiscompare(step, verify.lba, 0, 0, verify.cmdId, true);
    return status::miscompare;
  }
  return expected.status;
}

}  // namespace

int32_t recvVerify(Step& step, const FinishedCommand& finished) {
  DriveData& data = step.data;
  const auto verify = takeByTag(data.verifySent, finished.tag);
  if (!verify) {
    step.log().logf(2, "recvVerify(): couldn't find verify");
    return status::noRecord;
  }
  const Expectation expected = finishReads(step, *verify);
  if (finished.status == statusAborted) {
    data.trace->traceVerifyAborted(finished.lba, finished.xferLength, verify->cmdId, finished.tag);
    return status::ok;
  }
  SenseResult sense;
  if (finished.status == statusCheckCondition) {
    sense = readSense(step);
  }
  data.trace->traceVerifyFinished(finished.lba, finished.xferLength, verify->cmdId, finished.tag, sense.uec, sense.kcq);
  const int32_t result = judge(step, *verify, expected, isVerifyMiscompare(sense));
  return result == status::ok ? result : logFailure(step, "recvVerify", result);
}

}  // namespace vdl::agent
