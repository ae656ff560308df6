#include "host/drive/block/BlockErrors.h"

#include <algorithm>
#include <cerrno>
#include <system_error>

#include "host/drive/DriveError.h"
#include "host/drive/SenseData.h"

namespace corvane::host {
namespace {

constexpr Sense writeProtected{0x7, 0x27, 0x00};
constexpr Sense spaceAllocationFailed{0x7, 0x27, 0x07};

std::string textOf(int error) { return std::generic_category().message(error); }

bool saysGone(int error) { return error == ENODEV || error == ENXIO || error == ENOMEDIUM || error == ESHUTDOWN; }

bool hasRange(EngineRequest::Operation operation) { return operation != EngineRequest::Operation::flush; }

std::string attempt(const FailedOperation& failed, const std::string& name) {
  return name + ": a " + commandKindName(failed.command) + " at LBA " + std::to_string(failed.lba);
}

}  // namespace

void answerBlockFailure(const FailedOperation& failed, uint64_t blocksNow, const std::string& name,
                        DriveCompletion& out) {
  if (saysGone(failed.error) || blocksNow == 0) {
    throw DriveError(name + " is gone" + (failed.error == 0 ? "" : ": " + textOf(failed.error)) +
                     "; see the kernel's log (dmesg) for why");
  }
  if (hasRange(failed.operation) && failed.endLba > blocksNow) {
    setSense(out, sense::lbaOutOfRange, std::max(failed.lba, blocksNow));
    return;
  }
  switch (failed.error) {
    case ENODATA:
    case EIO:
    case EILSEQ:
    case EUCLEAN:
      setMediumError(failed, out);
      return;
    case 0:
    case EREMOTEIO:
      setSense(out, sense::internalFailure, failed.lba);
      return;
    case EBADE:
      out.status = scsi_status::reservationConflict;
      out.senseBytes = 0;
      return;
    case ENOSPC:
      setSense(out, spaceAllocationFailed, failed.lba);
      return;
    case EPERM:
    case EROFS:
      setSense(out, writeProtected, failed.lba);
      return;
    case EOPNOTSUPP:
      setSense(out, sense::invalidOperation);
      return;
    case EINVAL:
      setSense(out, sense::invalidField);
      return;
    case ENOLINK:
    case ETIMEDOUT:
    case ETIME:
      setSense(out, sense::abortedByInternalFailure);
      return;
    default:
      throw DriveError(attempt(failed, name) + " failed: " + textOf(failed.error) +
                       "; see the kernel's log (dmesg) for why");
  }
}

}  // namespace corvane::host
