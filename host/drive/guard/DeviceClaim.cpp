#include "host/drive/guard/DeviceClaim.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <system_error>
#include <utility>

#include "host/drive/DriveError.h"
#include "host/drive/ForwardingDrive.h"

namespace corvane::host {
namespace {

struct Held {
  DeviceClaim device;
};

/// The claim is a base as well, and the first one, so that it goes behind the drive.
class ClaimedDrive : private Held, public ForwardingDrive {
 public:
  ClaimedDrive(std::unique_ptr<Drive> drive, DeviceClaim claim)
      : Held{std::move(claim)}, ForwardingDrive(std::move(drive)) {}
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
