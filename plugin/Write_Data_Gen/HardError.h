#pragma once

#include <cstdint>

#include "Step.h"

namespace vdl::agent {

/// Reads sense data and says whether the command failed for good; a recovered error did not.
///
/// The failing LBA is read when `valid` is non-zero on entry, or when a medium error says so.
///
/// @param valid the caller's to initialise; less than 8 bytes of sense data leave every output untouched
/// @return true for a hard error
bool checkForHardError(const Buffer& sense, SenseParser::Kcq& kcq, SenseParser::Uec& uec, uint8_t& valid,
                       uint64_t& failingLba);

/// The outcome of a command that did not end with good status.
struct SenseResult {
  SenseParser::Kcq kcq;
  SenseParser::Uec uec = 0;
  uint8_t informationValid = 0;
  uint64_t information = 0;
  bool hard = false;
};

/// Reads "LastErrSenseData". On a device interface without sense data every failure is hard.
SenseResult readSense(const Step& step);

}  // namespace vdl::agent
