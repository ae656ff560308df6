#include "host/drive/scsi/sg/SgStatus.h"

namespace corvane::host {
namespace {

/// The kernel's names; no header for programs has them.
enum HostCode : uint16_t {
  didOk = 0x00,
  didNoConnect = 0x01,
  didBusBusy = 0x02,
  didBadTarget = 0x04,
  didPassthrough = 0x0A,
  didSoftError = 0x0B,
  didImmediateRetry = 0x0C,
  didRequeue = 0x0D,
  didTransportFailfast = 0x0F,
  didTargetFailure = 0x10,
  didNexusFailure = 0x11,
  didAllocationFailure = 0x12,
  didMediumError = 0x13,
  didTransportMarginal = 0x14
};

constexpr uint16_t driverCodeMask = 0x0F;
constexpr uint16_t driverSense = 0x08;
constexpr uint8_t statusMask = 0xFE;  // SAM; the lowest bit was a vendor's

/// What the unit itself said. Some drivers hand in sense data and forget the status that goes with it.
uint32_t answerOf(const SgStatus& status) {
  const uint32_t answer = status.scsi & statusMask;
  const bool sense = (status.driver & driverCodeMask) == driverSense && status.senseBytes != 0;
  return answer == scsi_status::good && sense ? scsi_status::checkCondition : answer;
}

}  // namespace

bool mayBeRepeated(const ScsiRequest& request) {
  constexpr uint8_t testUnitReady = 0x00;
  constexpr uint8_t synchronizeCache10 = 0x35;
  constexpr uint8_t synchronizeCache16 = 0x91;
  if (request.direction == ScsiRequest::Data::fromUnit) {
    return true;
  }
  const uint8_t operation = request.cdb[0];
  return operation == testUnitReady || operation == synchronizeCache10 || operation == synchronizeCache16;
}

SgVerdict judge(const SgStatus& status, bool repeatable) {
  const uint32_t answer = answerOf(status);
  switch (status.host) {
    case didOk:
    case didPassthrough:
      return {.status = answer};
    case didTargetFailure:
    case didNexusFailure:
    case didAllocationFailure:
    case didMediumError:
    case didTransportMarginal:
      // The middle layer's words for what the unit answered, beside the answer itself.
      if (answer != scsi_status::good) {
        return {.status = answer};
      }
      break;
    case didNoConnect:
    case didBadTarget:
    case didTransportFailfast:
      return {.unitLost = true};
    case didBusBusy:
    case didSoftError:
    case didImmediateRetry:
    case didRequeue:
      return {.status = scsi_status::busy};
    default:
      break;
  }
  return {.status = repeatable ? scsi_status::busy : scsi_status::aborted};
}

}  // namespace corvane::host
