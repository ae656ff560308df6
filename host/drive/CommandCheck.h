#pragma once

#include <optional>

#include "host/drive/Drive.h"
#include "host/drive/SenseData.h"

namespace corvane::host {

/// What a drive of this geometry answers to a command that it cannot carry out; nothing when it can.
///
/// Unknown kind: invalid operation code. Blocks beyond the end: LBA out of range. Data whose size does not fit the
/// command, a step between blocks of 0, or an atomic write with a segment that the drive does not take: invalid field.
std::optional<Sense> refuse(const DriveCommand& command, const DriveGeometry& geometry,
                            const DriveCapabilities& capabilities);

}  // namespace corvane::host
