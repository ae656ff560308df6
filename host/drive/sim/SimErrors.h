#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "host/base/Random.h"
#include "host/drive/Drive.h"
#include "host/drive/DriveAddress.h"
#include "host/drive/SenseData.h"

namespace corvane::host {

/// How often a legal drive fails, as probabilities of a command that the accident can happen to.
struct SimErrorRates {
  double abort = 0;       ///< of a write, atomic write, write-same or trim: ends as aborted
  double writeError = 0;  ///< of the same kinds: ends with a hard error
  double readError = 0;   ///< of a read: ends with a hard error
  double recovered = 0;   ///< of a command with data: carried out, and says that it was hard
};

/// How one command ends.
struct SimAccident {
  enum class Kind : uint8_t {
    none,
    aborted,     ///< without sense data; any subset is carried out
    recovered,   ///< carried out wholly
    writeError,  ///< any subset is carried out, but all blocks before `failing` if there is one
    readError    ///< without data
  };

  Kind kind = Kind::none;
  Sense sense;                      ///< unless none or aborted
  std::optional<uint32_t> failing;  ///< the block, counted in the command, that the sense data's information names
};

/// Decides which commands of a simulated drive meet with an accident.
///
/// Commands must have been accepted. Draws nothing for a rate of 0, and everything that it draws is its own, so that a
/// drive without accidents answers as if there were none of this.
class SimErrors {
 public:
  SimErrors(const SimErrorRates& rates, uint64_t seed);

  SimAccident next(const DriveCommand& command);

  /// For which part of a failed command is carried out.
  Random& chance() { return random_; }

 private:
  /// Draws nothing for a rate of 0.
  bool happens(double rate) { return rate > 0 && random_.happens(rate); }
  uint32_t anyBlock(const DriveCommand& command) { return static_cast<uint32_t>(random_.below(command.blocks)); }
  SimAccident writeError(const DriveCommand& command);
  SimAccident readError(const DriveCommand& command);
  SimAccident recovered(const DriveCommand& command);

  SimErrorRates rates_;
  Random random_;
};

/// Reads `abort=`, `write-error=`, `read-error=` and `recovered=`.
SimErrorRates takeErrorRates(DriveAddress& address);

/// What `takeErrorRates` understands, a line or more a key, for `--help`.
std::string errorRatesHelp();

}  // namespace corvane::host
