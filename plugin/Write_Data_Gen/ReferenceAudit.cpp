#include "ReferenceAudit.h"

#include "Step.h"

namespace vdl::agent {

std::string auditReferences(const DriveData& data) {
  uint64_t owed = 0;
  for (const WriteFinished& write : data.writeFinished) {
    owed += write.xferLength;
  }
  for (const WriteSent& write : data.writeSent) {
    owed += write.readCmdId == 0 ? write.xferLength : 0;
  }
  for (const PreRead& preRead : data.preReadFinished) {
    owed += preRead.xferLength;
  }
  const uint64_t held = data.atomicHash.references();
  if (held == owed) {
    return {};
  }
  return "the table holds " + std::to_string(held) + " references, commands account for " + std::to_string(owed);
}

std::string auditRecords(const DriveData& data) {
  for (const auto& [lba, record] : data.atomicHash.records()) {
    if (record.ref_count == 0 && record.wait_read == nullptr) {
      return "LBA " + std::to_string(lba) + " has a record without a reference or a waiting read";
    }
  }
  return {};
}

}  // namespace vdl::agent
