#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "host/report/Explanation.h"
#include "host/report/TraceReport.h"

namespace corvane::host::report {

/// Something that happened to a drive as a whole, or to a range of it, between commands.
struct Moment {
  uint64_t at = 0;  ///< in the measure of the commands beside it
  std::string text;
};

/// What a command sequence tells of the surroundings of a block.
struct TraceNeighbourhood {
  std::vector<ReportedCommand> commands;  ///< oldest first; `issued` and `finished` are places in the sequence
  std::vector<Moment> moments;
  std::optional<uint64_t> failingId;  ///< the agent's id of the command that met the block, where the sequence says it
};

/// The commands on a block and on those near it, issues put together with completions.
///
/// Near is as far as it takes to see some tens of commands, but not farther than some thousand blocks. Of very many
/// commands those of the block itself stay, and then the latest.
TraceNeighbourhood commandsAround(const TraceReport& trace, uint64_t lba);

}  // namespace corvane::host::report
