#include "host/drive/nvme/NvmeStatus.h"

#include <algorithm>
#include <array>
#include <cstdio>

namespace corvane::host {
namespace {

constexpr uint8_t notReady = 0x2;
constexpr uint8_t dataProtect = 0x7;
constexpr uint32_t check = scsi_status::checkCondition;
constexpr uint16_t pathRelated = 0x3;

constexpr std::array meanings{
    NvmeStatusMeaning{0x000, "Successful Completion", scsi_status::good, {}},
    NvmeStatusMeaning{0x001, "Invalid Command Opcode", check, sense::invalidOperation},
    NvmeStatusMeaning{0x002, "Invalid Field in Command", check, sense::invalidField},
    NvmeStatusMeaning{0x004, "Data Transfer Error", check, {sense_key::mediumError, 0x00, 0x00}},
    NvmeStatusMeaning{0x005, "Commands Aborted due to Power Loss Notification", scsi_status::aborted, {}},
    NvmeStatusMeaning{0x006, "Internal Error", check, sense::internalFailure},
    NvmeStatusMeaning{0x007, "Command Abort Requested", scsi_status::aborted, {}},
    NvmeStatusMeaning{0x008, "Command Aborted due to SQ Deletion", scsi_status::aborted, {}},
    NvmeStatusMeaning{0x009, "Command Aborted due to Failed Fused Command", scsi_status::aborted, {}},
    NvmeStatusMeaning{0x00A, "Command Aborted due to Missing Fused Command", scsi_status::aborted, {}},
    NvmeStatusMeaning{0x00B, "Invalid Namespace or Format", check, {sense_key::illegalRequest, 0x20, 0x09}},
    NvmeStatusMeaning{0x00C, "Command Sequence Error", check, {sense_key::illegalRequest, 0x2C, 0x00}},
    NvmeStatusMeaning{0x01C, "Sanitize Failed", check, {notReady, 0x04, 0x00}},
    NvmeStatusMeaning{0x01D, "Sanitize In Progress", check, {notReady, 0x04, 0x1B}},
    NvmeStatusMeaning{0x020, "Namespace is Write Protected", check, {dataProtect, 0x27, 0x00}},
    NvmeStatusMeaning{0x021, "Command Interrupted", scsi_status::busy, {}},
    NvmeStatusMeaning{0x080, "LBA Out of Range", check, sense::lbaOutOfRange},
    NvmeStatusMeaning{0x081, "Capacity Exceeded", check, {sense_key::mediumError, 0x00, 0x00}},
    NvmeStatusMeaning{0x082, "Namespace Not Ready", check, {notReady, 0x04, 0x00}},
    NvmeStatusMeaning{0x083, "Reservation Conflict", scsi_status::reservationConflict, {}},
    NvmeStatusMeaning{0x084, "Format In Progress", check, {notReady, 0x04, 0x04}},
    NvmeStatusMeaning{0x180, "Conflicting Attributes", check, sense::invalidField},
    NvmeStatusMeaning{0x181, "Invalid Protection Information", check, sense::invalidField},
    NvmeStatusMeaning{0x182, "Attempted Write to Read Only Range", check, {dataProtect, 0x27, 0x00}},
    NvmeStatusMeaning{0x1B8, "Zone Boundary Error", check, sense::writeBoundaryViolation},
    NvmeStatusMeaning{0x1B9, "Zone Is Full", check, sense::invalidField},
    NvmeStatusMeaning{0x1BA, "Zone Is Read Only", check, {dataProtect, 0x27, 0x08}},
    NvmeStatusMeaning{0x1BB, "Zone Is Offline", check, {dataProtect, 0x2C, 0x0E}},
    NvmeStatusMeaning{0x1BC, "Zone Invalid Write", check, sense::unalignedWrite},
    NvmeStatusMeaning{0x1BD, "Too Many Active Zones", check, {dataProtect, 0x55, 0x0E}},
    NvmeStatusMeaning{0x1BE, "Too Many Open Zones", check, {dataProtect, 0x55, 0x0E}},
    NvmeStatusMeaning{0x1BF, "Invalid Zone State Transition", check, sense::invalidField},
    NvmeStatusMeaning{0x280, "Write Fault", check, {sense_key::mediumError, 0x03, 0x00}},
    NvmeStatusMeaning{0x281, "Unrecovered Read Error", check, sense::unrecoveredRead},
    NvmeStatusMeaning{0x282, "End-to-end Guard Check Error", check, {sense_key::abortedCommand, 0x10, 0x01}},
    NvmeStatusMeaning{0x283, "End-to-end Application Tag Check Error", check, {sense_key::abortedCommand, 0x10, 0x02}},
    NvmeStatusMeaning{0x284, "End-to-end Reference Tag Check Error", check, {sense_key::abortedCommand, 0x10, 0x03}},
    NvmeStatusMeaning{0x285, "Compare Failure", check, sense::miscompareDuringVerify},
    NvmeStatusMeaning{0x286, "Access Denied", check, {dataProtect, 0x20, 0x02}},
    NvmeStatusMeaning{0x287, "Deallocated or Unwritten Logical Block", check, {sense_key::illegalRequest, 0x21, 0x06}},
};

const NvmeStatusMeaning* find(uint16_t status) {
  const auto* const found =
      std::lower_bound(meanings.begin(), meanings.end(), status & nvme_status::codeMask,
                       [](const NvmeStatusMeaning& meaning, int wanted) { return meaning.status < wanted; });
  return found != meanings.end() && found->status == (status & nvme_status::codeMask) ? found : nullptr;
}

uint32_t codeType(uint16_t status) { return (status & nvme_status::codeMask) >> 8; }

bool isAboutABlock(const Sense& sense) {
  return sense.key == sense_key::mediumError || sense.key == sense_key::miscompare;
}

}  // namespace

std::span<const NvmeStatusMeaning> nvmeStatusMeanings() { return meanings; }

void setNvmeStatus(DriveCompletion& completion, uint16_t status, std::optional<uint64_t> lba) {
  const NvmeStatusMeaning* meaning = find(status);
  completion.bytesTransferred = 0;
  completion.senseBytes = 0;
  if (meaning == nullptr && codeType(status) != pathRelated) {
    setSense(completion, sense::internalFailure);
    return;
  }
  completion.status = meaning == nullptr ? scsi_status::aborted : meaning->scsiStatus;
  if (completion.status == scsi_status::checkCondition) {
    setSense(completion, meaning->sense, isAboutABlock(meaning->sense) ? lba : std::nullopt);
  }
}

std::string nvmeStatusText(uint16_t status) {
  const NvmeStatusMeaning* const meaning = find(status);
  std::array<char, 32> numbers{};
  std::snprintf(numbers.data(), numbers.size(), " (SCT %Xh, SC %02Xh)", codeType(status), status & 0xFFU);
  return std::string(meaning == nullptr ? "status" : meaning->name) + numbers.data();
}

}  // namespace corvane::host
