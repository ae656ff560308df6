#include "host/run/CommandEnding.h"

#include <array>

#include "host/drive/SenseData.h"
#include "vdl/SenseParser.h"

namespace corvane::host {
namespace {

constexpr uint32_t shortestSense = 8;

std::optional<uint64_t> informationOf(const uint8_t* sense) {
  uint8_t valid = 0;
  vdl::SenseParser::getValidBit(sense, &valid);
  if (valid == 0) {
    return std::nullopt;
  }
  std::array<uint8_t, 8> bytes{};
  vdl::SenseParser::getInformationBytes(sense, bytes.data());
  uint64_t lba = 0;
  for (const uint8_t byte : bytes) {
    lba = lba << 8 | byte;
  }
  return lba;
}

}  // namespace

CommandEnding badEndingOf(const DriveCompletion& completion, bool readsSense) {
  CommandEnding ending;
  if (completion.status == scsi_status::aborted) {
    ending.aborted = true;
    return ending;
  }
  ending.failed = true;
  if (!readsSense || completion.senseBytes < shortestSense) {
    return ending;
  }
  const uint8_t* sense = completion.sense.data();
  vdl::SenseParser::Kcq kcq;
  if (vdl::SenseParser::getKey(sense, kcq) != 0) {
    return ending;
  }
  vdl::SenseParser::getCode(sense, kcq);
  vdl::SenseParser::getQual(sense, kcq);
  ending.failed = kcq.key != sense_key::recoveredError;
  ending.mediumError = kcq.key == sense_key::mediumError;
  ending.verifyMiscompare = completion.status == scsi_status::checkCondition &&
                            Sense{kcq.key, kcq.code, kcq.qual} == sense::miscompareDuringVerify;
  if (ending.mediumError) {
    ending.failingLba = informationOf(sense);
  }
  return ending;
}

}  // namespace corvane::host
