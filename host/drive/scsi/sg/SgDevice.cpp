#include "host/drive/scsi/sg/SgDevice.h"

#include <fcntl.h>
#include <linux/fs.h>
#include <scsi/scsi.h>
#include <scsi/sg.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <fstream>
#include <system_error>

#include "host/drive/DriveError.h"

namespace corvane::host {
namespace {

constexpr unsigned genericMajor = 21;  // the kernel's number for SCSI generic devices
constexpr int thirdVersion = 30000;    // of the interface: sg_io_hdr

std::string remedyOf(int error) {
  switch (error) {
    case ENOENT:
      return "see /dev/sg* and whether the module sg is loaded";
    case EACCES:
    case EPERM:
      return "run as root or give yourself access to it";
    case ENXIO:
    case ENODEV:
      return "the drive is gone; connect it again and see /dev/sg*";
    case EBUSY:
      return "another program has it for itself; end that";
    default:
      return "see the kernel's messages";
  }
}

/// The queue that the kernel keeps for the device; `otherwise` where it does not tell.
uint32_t queueDepth(const std::string& nodeName, uint32_t otherwise) {
  std::ifstream file("/sys/class/scsi_generic/" + nodeName + "/device/queue_depth");
  uint32_t depth = 0;
  return file >> depth && depth > 0 ? depth : otherwise;
}

}  // namespace

SgDevice::SgDevice(const std::string& path, uint32_t requests) : path_(path) {
  openOnce();
  struct stat status {};
  if (fstat(openings_.front(), &status) != 0 || !S_ISCHR(status.st_mode) || major(status.st_rdev) != genericMajor) {
    giveUp("is not a SCSI generic device; those are called /dev/sg0, /dev/sg1 and so on");
  }
  int version = 0;
  if (ioctl(openings_.front(), SG_GET_VERSION_NUM, &version) != 0 || version < thirdVersion) {
    giveUp("does not speak version 3 of the SCSI generic interface; it needs a newer kernel");
  }
  readLimits(requests);
  while (openings_.size() * requestsOfOne < requests_) {
    openOnce();
  }
}

SgDevice::~SgDevice() {
  for (const int opening : openings_) {
    close(opening);
  }
}

void SgDevice::openOnce() {
  // Without waiting: neither an opening nor a reset may hang on a device whose errors the kernel is working on.
  const int opening = open(path_.c_str(), O_RDWR | O_NONBLOCK | O_CLOEXEC);
  if (opening < 0) {
    const int error = errno;
    giveUp("cannot be opened: " + std::generic_category().message(error) + "; " + remedyOf(error));
  }
  openings_.push_back(opening);
  int queueing = 1;
  ioctl(opening, SG_SET_COMMAND_Q, &queueing);
}

void SgDevice::readLimits(uint32_t requests) {
  const int opening = openings_.front();
  sg_scsi_id id{};
  if (ioctl(opening, SG_GET_SCSI_ID, &id) != 0) {
    giveUp("does not say where it is: " + std::generic_category().message(errno) + "; see the kernel's messages");
  }
  place_ = std::to_string(id.host_no) + ":" + std::to_string(id.channel) + ":" + std::to_string(id.scsi_id) + ":" +
           std::to_string(id.lun);
  struct stat status {};
  fstat(opening, &status);
  requests_ = std::min(requests, queueDepth("sg" + std::to_string(minor(status.st_rdev)), requests));
  // Bytes, other than the same request of a block device.
  int bytes = 0;
  int pieces = 0;
  ioctl(opening, BLKSECTGET, &bytes);
  ioctl(opening, SG_GET_SG_TABLESIZE, &pieces);
  const uint64_t pageBytes = static_cast<uint64_t>(sysconf(_SC_PAGESIZE));
  mostBytes_ = bytes > 0 ? static_cast<uint64_t>(bytes) : 128 * pageBytes;
  if (pieces > 0) {
    mostBytes_ = std::min(mostBytes_, static_cast<uint64_t>(pieces) * pageBytes);
  }
}

void SgDevice::fail(const std::string& fault) const { throw DriveError("SCSI device '" + path_ + "' " + fault); }

void SgDevice::giveUp(const std::string& fault) {
  for (const int opening : openings_) {
    close(opening);
  }
  fail(fault);
}

}  // namespace corvane::host
