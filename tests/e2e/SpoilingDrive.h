#pragma once

#include <functional>
#include <memory>
#include <string>
#include <unordered_map>
#include <vector>

#include "host/drive/ForwardingDrive.h"

namespace corvane::host::e2e {

/// Reads and writes sectors of a drive's medium behind its back.
class MediumAccess {
 public:
  virtual ~MediumAccess() = default;
  virtual std::vector<uint8_t> read(uint64_t lba) = 0;
  virtual void write(uint64_t lba, const std::vector<uint8_t>& sector) = 0;
};

/// Access to a SimDrive's memory; the drive outlives it.
std::unique_ptr<MediumAccess> accessSim(Drive& drive);
/// Access to a file drive's file.
std::unique_ptr<MediumAccess> accessFile(const std::string& path, uint32_t sectorBytes);

enum class Spoil { flippedByte, staleBlock, neighboursData, zeroedBlock };

/// A good drive, but one block of its medium is spoilt behind its back just before it is read.
///
/// Strikes once, at the first read from `fromRead` on whose first block allows it: it was written, and, to be put
/// back to its old content, written twice.
class SpoilingDrive : public ForwardingDrive {
 public:
  /// What was done.
  struct Record {
    bool done = false;
    uint64_t lba = 0;
    std::vector<uint8_t> before;
    std::vector<uint8_t> after;
  };

  SpoilingDrive(std::unique_ptr<Drive> drive, std::unique_ptr<MediumAccess> medium, Spoil spoil, uint64_t fromRead,
                Record& record);
  ~SpoilingDrive() override;

  void submit(const DriveCommand& command) override;

 private:
  struct Written {
    std::vector<uint8_t> now;
    std::vector<uint8_t> previous;  ///< empty until it is written a second time
  };
  void remember(const DriveCommand& write);
  bool strike(uint64_t lba);

  std::unique_ptr<MediumAccess> medium_;
  Spoil spoil_;
  uint64_t readsToGo_;
  Record& record_;
  std::unordered_map<uint64_t, Written> written_;
};

}  // namespace corvane::host::e2e
