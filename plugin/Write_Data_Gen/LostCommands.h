#pragma once

#include "Step.h"

namespace vdl::agent {

/// Accounts for a command in flight that will never complete: traces it as aborted and tells the expected-state table
/// what that means for its blocks. The caller removes the record.
///
/// A lost pre-read touches no state. A lost read leaves a reference on each block for the read that repeats it. A
/// lost verify walks every LBA, also with skip commands.
void commandLost(DriveData& data, const PreRead& lost);
void commandLost(DriveData& data, const VerifySent& lost);
void commandLost(DriveData& data, const ConfigData& config, const ReadSent& lost);
void commandLost(DriveData& data, const ConfigData& config, const WriteSent& lost);

}  // namespace vdl::agent
