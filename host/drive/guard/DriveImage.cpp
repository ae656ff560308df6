#include "host/drive/guard/DriveImage.h"

#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <limits>
#include <system_error>
#include <thread>

#include "host/drive/DriveError.h"
#include "host/drive/SenseData.h"

namespace corvane::host {
namespace {

constexpr uint64_t chunkBytes = 256 << 10;

[[noreturn]] void failMemory() {
  throw DriveError("no memory for a picture of the drive: " + std::generic_category().message(errno));
}

/// Whether a zoned drive refused blocks because nobody has written them yet.
bool isUnwritten(const DriveCompletion& completion, const DriveCapabilities& capabilities) {
  constexpr uint8_t descriptorFormat = 0x72;
  constexpr uint8_t keyMask = 0x0F;
  const bool descriptors = (completion.sense[0] & 0x7E) == descriptorFormat;
  const int key = (descriptors ? completion.sense[1] : completion.sense[2]) & keyMask;
  return capabilities.hostManaged && completion.status == scsi_status::checkCondition && completion.senseBytes >= 8 &&
         key == sense_key::illegalRequest;
}

/// A file cannot be longer.
uint64_t imageBytes(const Drive& drive) {
  const DriveGeometry& geometry = drive.geometry();
  constexpr uint64_t most = std::numeric_limits<off_t>::max();
  if (geometry.blocks > most / geometry.blockSize) {
    throw DriveError("the drive (" + drive.description() + ") has " + std::to_string(geometry.blocks) + " blocks of " +
                     std::to_string(geometry.blockSize) +
                     " bytes, more than can be looked at for what it holds; name one below 8 EiB");
  }
  return geometry.blocks * geometry.blockSize;
}

}  // namespace

DriveImage::DriveImage(Drive& drive, std::chrono::milliseconds longestRead)
    : drive_(drive),
      longestRead_(longestRead),
      geometry_(drive.geometry()),
      bytes_(imageBytes(drive)),
      file_(memfd_create("corvane-guard", MFD_CLOEXEC)) {
  if (file_ < 0) {
    failMemory();
  }
  try {
    if (ftruncate(file_, static_cast<off_t>(bytes_)) != 0) {
      failMemory();
    }
    addPlace(0, headBytes);
    const uint64_t tail = bytes_ - std::min(bytes_, tailBytes);
    const uint64_t first = std::max(tail, headBytes);
    if (first < bytes_) {
      addPlace(first, bytes_ - first);
    }
  } catch (...) {
    close(file_);
    throw;
  }
}

DriveImage::~DriveImage() { close(file_); }

void DriveImage::addPlace(uint64_t firstByte, uint64_t bytes) {
  const uint64_t block = geometry_.blockSize;
  const uint64_t first = firstByte / block;
  if (first >= geometry_.blocks) {
    return;
  }
  const uint64_t end = std::min(geometry_.blocks, first + (firstByte % block + bytes + block - 1) / block);
  for (uint64_t lba = first; lba < end;) {
    const uint64_t blocks = std::min(end - lba, std::max<uint64_t>(chunkBytes / block, 1));
    addBlocks(lba, static_cast<uint32_t>(blocks));
    lba += blocks;
  }
}

void DriveImage::addBlocks(uint64_t lba, uint32_t blocks) {
  if (!read(lba, blocks)) {
    if (unwritten_ && blocks > 1) {
      addBlocks(lba, blocks / 2);
      addBlocks(lba + blocks / 2, blocks - blocks / 2);
    } else if (!unwritten_ && unreadPlaces_++ < 3) {
      unread_ += (unread_.empty() ? "LBAs " : ", ") + std::to_string(lba) + " to " + std::to_string(lba + blocks - 1);
    }
    return;
  }
  const uint32_t sector = geometry_.sectorBytes();
  for (uint32_t i = 0; i < blocks; ++i) {
    const uint8_t* found = memory_.data() + uint64_t{i} * sector;
    // What is zero stays a hole.
    const bool zeros = found[0] == 0 && std::memcmp(found, found + 1, geometry_.blockSize - 1) == 0;
    const auto place = static_cast<off_t>((lba + i) * geometry_.blockSize);
    if (!zeros && pwrite(file_, found, geometry_.blockSize, place) != static_cast<ssize_t>(geometry_.blockSize)) {
      failMemory();
    }
  }
}

DriveCompletion DriveImage::answer() {
  const auto until = std::chrono::steady_clock::now() + longestRead_;
  DriveCompletion completion;
  while (!drive_.poll(completion, false)) {
    if (std::chrono::steady_clock::now() > until) {
      takeBack();
      throw DriveError("the drive (" + drive_.description() + ") does not answer a read within " +
                       std::to_string(longestRead_.count() / 1000) + " seconds; nothing was written to it");
    }
    std::this_thread::sleep_for(std::chrono::microseconds(50));
  }
  return completion;
}

void DriveImage::takeBack() {
  // The read's memory goes with us, so the drive must be done with it.
  if (drive_.capabilities().deviceReset) {
    drive_.reset();
    return;
  }
  DriveCompletion late;
  while (drive_.poll(late, true)) {
  }
}

bool DriveImage::read(uint64_t lba, uint32_t blocks) {
  constexpr uint64_t idsOfTests = uint64_t{1} << 63;  // a test that follows counts from the beginning
  constexpr int attempts = 3;                         // a drive may be busy, or have something to tell first
  DriveCommand command;
  command.kind = CommandKind::read;
  command.lba = lba;
  command.blocks = blocks;
  command.dataBytes = uint64_t{blocks} * geometry_.sectorBytes();
  command.data = memory_.atLeast(command.dataBytes);
  unwritten_ = false;
  for (int attempt = 0; attempt < attempts; ++attempt) {
    command.id = idsOfTests + nextId_++;
    drive_.submit(command);
    const DriveCompletion completion = answer();
    if (isCarriedOut(completion) && completion.bytesTransferred == command.dataBytes) {
      return true;
    }
    unwritten_ = isUnwritten(completion, drive_.capabilities());
    if (unwritten_) {
      return false;
    }
  }
  return false;
}

std::vector<uint8_t> DriveImage::at(uint64_t firstByte, uint64_t bytes) const {
  std::vector<uint8_t> found(bytes);
  const ssize_t got = pread(file_, found.data(), found.size(), static_cast<off_t>(firstByte));
  found.resize(got < 0 ? 0 : static_cast<size_t>(got));
  return found;
}

}  // namespace corvane::host
