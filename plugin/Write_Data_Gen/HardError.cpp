#include "HardError.h"

#include <algorithm>
#include <array>
#include <cstring>

namespace vdl::agent {

namespace {

constexpr uint64_t shortestSenseBytes = 8;
/// The header and all that the additional sense length can count.
constexpr uint64_t longestSenseBytes = 8 + 255;
constexpr uint8_t recoveredError = 1;
constexpr uint8_t mediumError = 3;

/// Sense data with zeros behind what is there. Data that were cut to an allocation length still say how long they were
/// (SPC), and the parser knows no other length.
class WholeSense {
 public:
  explicit WholeSense(const Buffer& sense) {
    std::memcpy(bytes_.data(), sense.data, std::min<uint64_t>(sense.size, bytes_.size()));
  }
  const uint8_t* data() const { return bytes_.data(); }

 private:
  std::array<uint8_t, longestSenseBytes> bytes_{};
};

}  // namespace

bool checkForHardError(const Buffer& sense, SenseParser::Kcq& kcq, SenseParser::Uec& uec, uint8_t& valid,
                       uint64_t& failingLba) {
  if (sense.data == nullptr || sense.size < shortestSenseBytes) {
    return true;
  }
  const WholeSense whole(sense);
  bool hard = true;
  if (SenseParser::getKey(whole.data(), kcq) == 0) {
    hard = kcq.key != recoveredError;
    if (kcq.key == mediumError) {
      SenseParser::getValidBit(whole.data(), &valid);
    }
  }
  SenseParser::getCode(whole.data(), kcq);
  SenseParser::getQual(whole.data(), kcq);
  SenseParser::getUec(whole.data(), uec);
  if (valid != 0) {
    uint8_t information[8] = {};
    SenseParser::getInformationBytes(whole.data(), information);
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
