#include "host/drive/scsi/ScsiUnit.h"

#include "host/drive/GeometryKeys.h"

namespace corvane::host {
namespace {

std::string describeTrim(const ScsiUnit& unit) {
  switch (unit.trim.by) {
    case TrimMethod::By::writeSame:
      return unit.trim.unmapBit ? "trims by WRITE SAME with UNMAP" : "trims by WRITE SAME of zeros";
    case TrimMethod::By::unmap:
      return "trims by UNMAP";
    case TrimMethod::By::nothing:
      break;
  }
  return "no trims (" + unit.whyNoTrim + ")";
}

}  // namespace

DriveCapabilities ScsiUnit::capabilities() const {
  return {.atomicWrite = atomic.segments.limited(),
          .atomicSegments = atomic.segments,
          .writeSame = true,
          .trim = trim.by != TrimMethod::By::nothing,
          .verify = true,
          .syncCache = flushes,
          .powerToggle = false,
          .deviceReset = true,
          .volatileCache = writeBackCache};
}

std::string ScsiUnit::description() const {
  std::string text = inquiry.vendor + " " + inquiry.product + " " + inquiry.revision;
  if (!serial.empty()) {
    text += ", serial " + serial;
  } else if (!designator.empty()) {
    text += ", " + designator;
  }
  text += ", " + describeGeometry(geometry);
  if (protectionType != 0) {
    text += ", protection type " + std::to_string(protectionType) +
            (geometry.protectionBytes == 0 ? " (not transferred)" : " (transferred, not checked)");
  }
  text += writeBackCache ? ", write-back cache" : ", no write-back cache";
  text += verifies ? ", verifies itself" : ", verifies are read and compared here";
  text += ", " + describeTrim(*this);
  text += atomic.segments.limited() ? ", atomic writes of " + std::to_string(atomic.segments.leastBlocks) + " to " +
                                          std::to_string(atomic.segments.mostBlocks) + " blocks"
                                    : ", no atomic writes (" + atomic.whyNot + ")";
  return text;
}

}  // namespace corvane::host
