#pragma once

#include <cstdint>
#include <string>

#include "Step.h"

namespace vdl::agent {

/// Stops the drive's firmware if the options ask for it, tells the device interface the LBA, traces the miscompare
/// and marks the drive so that the end of the test writes report and dumps.
void triggerMiscompare(Step& step, uint64_t lba, BlockNum expected, BlockNum found, uint64_t cmdId, bool flag);

/// Writes a byte image to a file; the path gets a number when a file of that name exists. Failures are logged.
void dumpMiscompareData(DriveThread& thread, const uint8_t* data, uint64_t bytes, std::string path);

}  // namespace vdl::agent
