#include "host/drive/guard/DeviceClaim.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <system_error>
#include <utility>

#include "host/drive/DriveError.h"

namespace corvane::host {
namespace {

class ClaimedDrive : public Drive {
 public:
  ClaimedDrive(std::unique_ptr<Drive> drive, DeviceClaim claim) : claim_(std::move(claim)), drive_(std::move(drive)) {}

  const DriveGeometry& geometry() const override { return drive_->geometry(); }
  const DriveCapabilities& capabilities() const override { return drive_->capabilities(); }
  std::string description() const override { return drive_->description(); }
  uint32_t maxOutstanding() const override { return drive_->maxOutstanding(); }
  void submit(const DriveCommand& command) override { drive_->submit(command); }
  bool poll(DriveCompletion& out, bool wait) override { return drive_->poll(out, wait); }
  void reset() override { drive_->reset(); }
  void powerCycle() override { drive_->powerCycle(); }
  void useMemory(uint8_t* data, uint64_t bytes) noexcept override { drive_->useMemory(data, bytes); }
  void sendQueued() override { drive_->sendQueued(); }
  bool waitUpTo(uint64_t microseconds) override { return drive_->waitUpTo(microseconds); }
  int sendVendorRequest(const uint8_t* block, uint32_t bytes) override {
    return drive_->sendVendorRequest(block, bytes);
  }

 private:
  DeviceClaim claim_;
  std::unique_ptr<Drive> drive_;  // goes first
};

}  // namespace

DeviceClaim::DeviceClaim(const std::string& name, const std::string& devicePath)
    // Without waiting: whether there is a medium is for the drive itself to say.
    : file_(open(devicePath.c_str(), O_RDONLY | O_EXCL | O_CLOEXEC | O_NONBLOCK)) {
  if (file_ >= 0) {
    return;
  }
  if (errno == EBUSY) {
    throw DriveError("drive '" + name + "' is in use: somebody has just mounted or claimed its block device '" +
                     devicePath + "'; free it, name another drive, or give --overwrite to test it all the same");
  }
  throw DriveError("drive '" + name + "' cannot be kept from being mounted during the test: its block device '" +
                   devicePath + "' cannot be opened: " + std::generic_category().message(errno) +
                   "; run as root, or give --overwrite to test it all the same");
}

DeviceClaim::DeviceClaim(DeviceClaim&& other) noexcept : file_(std::exchange(other.file_, -1)) {}

DeviceClaim::~DeviceClaim() {
  if (file_ >= 0) {
    close(file_);
  }
}

std::unique_ptr<Drive> withClaim(std::unique_ptr<Drive> drive, DeviceClaim claim) {
  return std::make_unique<ClaimedDrive>(std::move(drive), std::move(claim));
}

}  // namespace corvane::host
