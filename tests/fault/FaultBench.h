#pragma once

#include <cstdint>
#include <memory>
#include <stdexcept>
#include <string>
#include <utility>

#include "host/fault/FaultyDrive.h"
#include "tests/drive/CommandMaker.h"
#include "tests/fault/StageDrive.h"

namespace corvane::host {

/// A small drive for tests with faults.
inline SimSettings benchSettings(uint32_t blockSize = 512, uint32_t protectionBytes = 0) {
  SimSettings settings;
  settings.geometry = {.blocks = 1000, .blockSize = blockSize, .protectionBytes = protectionBytes};
  settings.depth = 64;
  return settings;
}

inline SimSettings volatileSettings() {
  SimSettings settings = benchSettings();
  settings.volatileCache = true;
  return settings;
}

/// A faulty drive around a staged one, and what a test needs to work it by hand.
class FaultBench {
 public:
  explicit FaultBench(const std::string& spec, const SimSettings& settings = benchSettings(), uint64_t seed = 1,
                      FaultExchange* exchange = nullptr, uint32_t number = 0)
      : FaultBench(std::make_unique<StageDrive>(settings), spec, seed, exchange, number) {}

  uint32_t sectorBytes() const { return drive.geometry().sectorBytes(); }

  /// Data that no earlier call gave.
  Bytes fresh(uint32_t blocks) { return randomBytes(++lastData_, uint64_t{blocks} * sectorBytes()); }

  /// Writes fresh data; the write must be reported as good.
  Bytes write(uint64_t lba, uint32_t blocks, CommandKind kind = CommandKind::write) {
    Bytes data = fresh(blocks);
    if (commands.run(kind, lba, blocks, &data).status != scsi_status::good) {
      throw std::runtime_error("a write failed");
    }
    return data;
  }

  Bytes read(uint64_t lba, uint32_t blocks) { return commands.read(lba, blocks); }

  /// What of a read's completion is of interest when it need not be good.
  DriveCompletion tryRead(uint64_t lba, uint32_t blocks) {
    Bytes data(uint64_t{blocks} * sectorBytes());
    return commands.run(CommandKind::read, lba, blocks, &data);
  }

  DriveCompletion verify(uint64_t lba, uint32_t blocks, Bytes data) {
    return commands.run(CommandKind::verify, lba, blocks, &data);
  }

  DriveCompletion flush() { return commands.run(CommandKind::syncCache, 0, 0); }

  /// What the honest drive beneath holds.
  Bytes honest(uint64_t lba, uint32_t blocks) {
    Bytes data(uint64_t{blocks} * sectorBytes());
    stage->medium().read(lba, blocks, data.data());
    return data;
  }

  /// Block number `index` of a transfer.
  Bytes block(const Bytes& data, uint64_t index) const {
    const auto first = data.begin() + static_cast<std::ptrdiff_t>(index * sectorBytes());
    return {first, first + sectorBytes()};
  }

  size_t injections() const { return ledger.injections().size(); }

  /// The one injection that there must be.
  const Injection& only() const {
    if (ledger.injections().size() != 1) {
      throw std::logic_error(std::to_string(ledger.injections().size()) + " injections instead of one");
    }
    return ledger.injections().front();
  }

  StageDrive* const stage;
  FaultLedger ledger;
  FaultyDrive drive;
  CommandMaker commands;

 private:
  FaultBench(std::unique_ptr<StageDrive> inner, const std::string& spec, uint64_t seed, FaultExchange* exchange,
             uint32_t number)
      : stage(inner.get()),
        ledger(number),
        drive(std::move(inner), parseFaultSpec(spec), seed, ledger, exchange),
        commands(drive),
        lastData_(uint64_t{number} << 32U) {}

  uint64_t lastData_ = 0;
};

/// The blocks of an injection, in its order.
inline std::vector<uint64_t> alteredLbas(const Injection& injection) {
  std::vector<uint64_t> lbas;
  for (const AlteredBlock& block : injection.altered) {
    lbas.push_back(block.lba);
  }
  return lbas;
}

}  // namespace corvane::host
