#include "tests/e2e/SpoilingDrive.h"

#include <fcntl.h>
#include <unistd.h>

#include <stdexcept>
#include <utility>

#include "host/drive/sim/SimDrive.h"

namespace corvane::host::e2e {
namespace {

class SimAccess : public MediumAccess {
 public:
  explicit SimAccess(SimMedium& medium) : medium_(medium) {}
  std::vector<uint8_t> read(uint64_t lba) override {
    std::vector<uint8_t> sector(medium_.sectorBytes());
    medium_.read(lba, 1, sector.data());
    return sector;
  }
  void write(uint64_t lba, const std::vector<uint8_t>& sector) override { medium_.write(lba, 1, sector.data()); }

 private:
  SimMedium& medium_;
};

class FileAccess : public MediumAccess {
 public:
  FileAccess(const std::string& path, uint32_t sectorBytes)
      : fd_(open(path.c_str(), O_RDWR | O_CLOEXEC)), sectorBytes_(sectorBytes) {
    if (fd_ < 0) {
      throw std::runtime_error("cannot open " + path);
    }
  }
  ~FileAccess() override { close(fd_); }
  FileAccess(const FileAccess&) = delete;
  FileAccess& operator=(const FileAccess&) = delete;

  std::vector<uint8_t> read(uint64_t lba) override {
    std::vector<uint8_t> sector(sectorBytes_);
    if (pread(fd_, sector.data(), sectorBytes_, static_cast<off_t>(lba * sectorBytes_)) !=
        static_cast<ssize_t>(sectorBytes_)) {
      throw std::runtime_error("cannot read the drive's file");
    }
    return sector;
  }
  void write(uint64_t lba, const std::vector<uint8_t>& sector) override {
    if (pwrite(fd_, sector.data(), sectorBytes_, static_cast<off_t>(lba * sectorBytes_)) !=
            static_cast<ssize_t>(sectorBytes_) ||
        fsync(fd_) != 0) {
      throw std::runtime_error("cannot write the drive's file");
    }
  }

 private:
  int fd_;
  uint32_t sectorBytes_;
};

}  // namespace

std::unique_ptr<MediumAccess> accessSim(Drive& drive) {
  return std::make_unique<SimAccess>(dynamic_cast<SimDrive&>(drive).medium());
}

std::unique_ptr<MediumAccess> accessFile(const std::string& path, uint32_t sectorBytes) {
  return std::make_unique<FileAccess>(path, sectorBytes);
}

SpoilingDrive::SpoilingDrive(std::unique_ptr<Drive> drive, std::unique_ptr<MediumAccess> medium, Spoil spoil,
                             uint64_t fromRead, Record& record)
    : ForwardingDrive(std::move(drive)),
      medium_(std::move(medium)),
      spoil_(spoil),
      readsToGo_(fromRead),
      record_(record) {}

SpoilingDrive::~SpoilingDrive() = default;

void SpoilingDrive::submit(const DriveCommand& command) {
  if (command.kind == CommandKind::write) {
    remember(command);
  } else if (command.kind == CommandKind::read && !record_.done) {
    if (readsToGo_ != 0) {
      --readsToGo_;
    } else {
      // No write that overlaps is outstanding: its caller saw to that.
      record_.done = strike(command.lba);
    }
  }
  inner().submit(command);
}

void SpoilingDrive::remember(const DriveCommand& write) {
  const uint32_t sectorBytes = geometry().sectorBytes();
  for (uint32_t i = 0; i < write.blocks; ++i) {
    Written& block = written_[write.lba + i];
    const uint8_t* data = write.data + uint64_t{i} * sectorBytes;
    block.previous = std::move(block.now);
    block.now.assign(data, data + sectorBytes);
  }
}

bool SpoilingDrive::strike(uint64_t lba) {
  const auto found = written_.find(lba);
  if (found == written_.end()) {
    return false;
  }
  std::vector<uint8_t> spoilt = found->second.now;
  switch (spoil_) {
    case Spoil::flippedByte:
      spoilt.at(100) ^= 0x10;
      break;
    case Spoil::staleBlock:
      spoilt = found->second.previous;
      break;
    case Spoil::neighboursData: {
      const auto neighbour = written_.find(lba + 1);
      spoilt = neighbour == written_.end() ? std::vector<uint8_t>() : neighbour->second.now;
      break;
    }
    case Spoil::zeroedBlock:
      spoilt.assign(spoilt.size(), 0);
      break;
  }
  record_.before = medium_->read(lba);
  if (spoilt.empty() || spoilt == record_.before) {
    return false;
  }
  record_.lba = lba;
  record_.after = spoilt;
  medium_->write(lba, spoilt);
  return true;
}

}  // namespace corvane::host::e2e
