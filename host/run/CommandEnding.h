#pragma once

#include <cstdint>
#include <optional>

#include "host/drive/Drive.h"

namespace corvane::host {

/// How a command ended, as one reads it who looks at its status and sense data.
struct CommandEnding {
  bool aborted = false;                ///< taken back; says nothing of the blocks
  bool failed = false;                 ///< otherwise, and the drive did not recover
  bool mediumError = false;            ///< of a failed one
  bool verifyMiscompare = false;       ///< of a failed verify: the drive found a difference
  std::optional<uint64_t> failingLba;  ///< of a medium error, as far as the drive says

  bool good() const { return !aborted && !failed; }
};

/// The ending of a command that did not end with the status good.
CommandEnding badEndingOf(const DriveCompletion& completion, bool readsSense);

/// @param readsSense whether the reader understands sense data; without it every status other than good and aborted is
///                   a failure
inline CommandEnding endingOf(const DriveCompletion& completion, bool readsSense) {
  return completion.status == scsi_status::good ? CommandEnding{} : badEndingOf(completion, readsSense);
}

}  // namespace corvane::host
