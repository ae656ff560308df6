#include "HardError.h"

namespace vdl::agent {

namespace {

constexpr uint64_t shortestSenseBytes = 8;
constexpr uint8_t recoveredError = 1;
constexpr uint8_t mediumError = 3;

}  // namespace

bool checkForHardError(const Buffer& sense, SenseParser::Kcq& kcq, SenseParser::Uec& uec, uint8_t& valid,
                       uint64_t& failingLba) {
  if (sense.size < shortestSenseBytes) {
    return true;
  }
  bool hard = true;
  if (SenseParser::getKey(sense.data, kcq) == 0) {
    hard = kcq.key != recoveredError;
    if (kcq.key == mediumError) {
      SenseParser::getValidBit(sense.data, &valid);
    }
  }
  SenseParser::getCode(sense.data, kcq);
  SenseParser::getQual(sense.data, kcq);
  SenseParser::getUec(sense.data, uec);
  if (valid != 0) {
    uint8_t information[8] = {};
    SenseParser::getInformationBytes(sense.data, information);
    failingLba = 0;
    for (const uint8_t byte : information) {
      failingLba = failingLba << 8 | byte;
    }
  }
  return hard;
}

SenseResult readSense(const Step& step) {
  SenseResult result;
  if (*step.data.deviceInterface != 0) {
    result.hard = true;
    return result;
  }
  result.hard = checkForHardError(*step.data.lastErrSenseData, result.kcq, result.uec, result.informationValid,
                                  result.information);
  return result;
}

}  // namespace vdl::agent
