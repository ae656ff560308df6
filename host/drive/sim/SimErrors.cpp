#include "host/drive/sim/SimErrors.h"

#include <array>

namespace corvane::host {
namespace {

constexpr uint64_t errorsStream = 0xE7707;  ///< keeps the random sequences of a seed apart

/// The commands that users of a drive change blocks with, as against those that take whole ranges away.
bool isWrite(CommandKind kind) {
  return kind == CommandKind::write || kind == CommandKind::writeAtomic || kind == CommandKind::writeSame ||
         kind == CommandKind::trim;
}

}  // namespace

SimErrors::SimErrors(const SimErrorRates& rates, uint64_t seed) : rates_(rates), random_(seed ^ errorsStream) {}

SimAccident SimErrors::next(const DriveCommand& command) {
  if (command.blocks == 0) {
    return {};
  }
  const bool writes = isWrite(command.kind);
  const bool reads = command.kind == CommandKind::read;
  if (writes && happens(rates_.abort)) {
    return {.kind = SimAccident::Kind::aborted, .sense = {}, .failing = {}};
  }
  if (writes && happens(rates_.writeError)) {
    return writeError(command);
  }
  if (reads && happens(rates_.readError)) {
    return readError(command);
  }
  const bool hasData = (writes && command.kind != CommandKind::trim) || reads || command.kind == CommandKind::verify;
  return hasData && happens(rates_.recovered) ? recovered(command) : SimAccident{};
}

SimAccident SimErrors::writeError(const DriveCommand& command) {
  constexpr std::array<Sense, 3> blind{sense::writeError, sense::internalFailure, sense::abortedByParityError};
  // One case more stands for an error that names its block. Before that one everything is written, which segments of
  // an atomic write need not be.
  const uint64_t which = random_.below(command.kind == CommandKind::writeAtomic ? blind.size() : blind.size() + 1);
  if (which < blind.size()) {
    return {.kind = SimAccident::Kind::writeError, .sense = blind[which], .failing = {}};
  }
  return {.kind = SimAccident::Kind::writeError, .sense = sense::writeError, .failing = anyBlock(command)};
}

SimAccident SimErrors::readError(const DriveCommand& command) {
  constexpr std::array<Sense, 3> senses{sense::unrecoveredRead, sense::internalFailure,
                                        sense::abortedByInternalFailure};
  SimAccident accident{
      .kind = SimAccident::Kind::readError, .sense = senses[random_.below(senses.size())], .failing = {}};
  if (accident.sense == sense::unrecoveredRead) {
    accident.failing = anyBlock(command);
  }
  return accident;
}

SimAccident SimErrors::recovered(const DriveCommand& command) {
  SimAccident accident{.kind = SimAccident::Kind::recovered,
                       .sense = isWrite(command.kind) ? sense::recoveredWrite : sense::recoveredRead,
                       .failing = {}};
  if (random_.below(2) == 0) {
    accident.failing = anyBlock(command);
  }
  return accident;
}

SimErrorRates takeErrorRates(DriveAddress& address) {
  SimErrorRates rates;
  rates.abort = address.probability("abort");
  rates.writeError = address.probability("write-error");
  rates.readError = address.probability("read-error");
  rates.recovered = address.probability("recovered");
  return rates;
}

std::string errorRatesHelp() {
  return "  abort=0          share of the commands that change blocks which end as aborted, 0 to 1, as in 0.01; any\n"
         "                   subset of them is then carried out, an atomic write by whole segments\n"
         "  write-error=0    share of the same commands which end with a hard error, some naming the failing block\n"
         "  read-error=0     share of the reads which end with a hard error and without data; not for a test with\n"
         "                   \"Write Splice Detection\", which takes an unreadable block for a splice\n"
         "  recovered=0      share of the commands with data which succeed and report a recovered error\n";
}

}  // namespace corvane::host
