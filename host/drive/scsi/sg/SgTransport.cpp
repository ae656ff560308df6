#include "host/drive/scsi/sg/SgTransport.h"

#include <scsi/scsi.h>
#include <scsi/sg.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <fstream>
#include <stdexcept>
#include <system_error>
#include <thread>

#include "host/drive/DriveError.h"
#include "host/drive/scsi/sg/SgStatus.h"

namespace corvane::host {
namespace {

/// What the kernel's error handler may need beyond a request's time limit: aborts, and resets of ever more.
constexpr std::chrono::seconds errorHandling{120};
constexpr std::chrono::milliseconds resetPause{20};
constexpr int noEscalation = 0x100;  // the kernel's flag, which no header for programs has

std::string textOf(int error) { return std::generic_category().message(error); }

bool saysGone(int error) { return error == ENODEV || error == ENXIO; }

/// Whether the administrator lets data go straight from and to the memory of a program.
bool mayGoDirectly() {
  std::ifstream file("/sys/module/sg/parameters/allow_dio");
  int allowed = 0;
  return file >> allowed && allowed != 0;
}

int directionOf(ScsiRequest::Data direction) {
  switch (direction) {
    case ScsiRequest::Data::toUnit:
      return SG_DXFER_TO_DEV;
    case ScsiRequest::Data::fromUnit:
      return SG_DXFER_FROM_DEV;
    case ScsiRequest::Data::none:
      break;
  }
  return SG_DXFER_NONE;
}

}  // namespace

SgTransport::SgTransport(const SgSettings& settings, uint32_t requests)
    : device_(settings.path, requests),
      timeoutSeconds_(settings.timeoutSeconds),
      direct_(mayGoDirectly()),
      pending_(device_.requests()),
      busy_(device_.openings().size()) {
  free_.reserve(pending_.size());
  for (uint32_t i = device_.requests(); i-- > 0;) {
    free_.push_back(i);
  }
  ready_.reserve(pending_.size());
  for (const int opening : device_.openings()) {
    waits_.push_back({.fd = opening, .events = POLLIN, .revents = 0});
  }
}

SgTransport::~SgTransport() {
  if (!direct_) {
    return;  // the kernel moves the data of what nobody takes to no memory of ours
  }
  try {
    drain();
  } catch (const std::exception&) {
    // Gone, or the kernel does not keep its own time limit.
    lost_ = true;
  }
}

std::string SgTransport::description() const { return "SCSI generic " + device_.path() + " at " + device_.place(); }

uint32_t SgTransport::idlestOpening() const {
  return static_cast<uint32_t>(std::min_element(busy_.begin(), busy_.end()) - busy_.begin());
}

void SgTransport::submit(const ScsiRequest& request) {
  if (free_.empty()) {
    throw std::logic_error("more requests than the transport takes at once");
  }
  if (lost_) {
    lose("is gone");
  }
  const uint32_t index = free_.back();
  Pending& pending = pending_[index];
  pending.slot = request.slot;
  pending.opening = idlestOpening();
  pending.repeatable = mayBeRepeated(request);

  sg_io_hdr header{};
  header.interface_id = 'S';
  header.dxfer_direction = request.bytes == 0 ? SG_DXFER_NONE : directionOf(request.direction);
  header.cmd_len = static_cast<unsigned char>(request.cdbBytes);
  // The kernel only reads it, and copies it before write() returns.
  header.cmdp = const_cast<unsigned char*>(request.cdb.data());
  header.mx_sb_len = static_cast<unsigned char>(pending.sense.size());
  header.sbp = pending.sense.data();
  header.dxfer_len = static_cast<unsigned>(request.bytes);
  header.dxferp = request.data;
  header.timeout = timeoutSeconds_ * 1000;
  // Taken back silently where the memory does not fit.
  header.flags = direct_ ? SG_FLAG_DIRECT_IO : 0;
  header.pack_id = static_cast<int>(index);
  while (write(device_.openings()[pending.opening], &header, sizeof(header)) < 0) {
    switch (const int error = errno) {
      case EINTR:
        continue;
      case EAGAIN:
      case EBUSY:
      case EDOM:
      case ENOMEM:
        answer(request, scsi_status::busy);
        return;
      default:
        if (saysGone(error)) {
          lose("is gone");
        }
        device_.fail("does not take a request of " + std::to_string(request.bytes) + " bytes: " + textOf(error) +
                     "; see the kernel's messages");
    }
  }
  free_.pop_back();
  ++busy_[pending.opening];
}

void SgTransport::answer(const ScsiRequest& request, uint32_t status) {
  ScsiReply reply;
  reply.slot = request.slot;
  reply.status = status;
  ready_.push_back(reply);
}

bool SgTransport::poll(ScsiReply& out, bool wait) {
  if (!ready_.empty()) {
    out = ready_.back();
    ready_.pop_back();
    return true;
  }
  // After a loss nothing is answered any more.
  while (!lost_ && free_.size() < pending_.size()) {
    if (const std::optional<SgVerdict> verdict = take(out)) {
      if (verdict->unitLost) {
        lose("cannot be reached any more");
      }
      return true;
    }
    if (!wait) {
      return false;
    }
    waitForAnswer();
  }
  return false;
}

std::optional<SgVerdict> SgTransport::take(ScsiReply& out) {
  const auto openings = static_cast<uint32_t>(busy_.size());
  for (uint32_t i = 0; i < openings; ++i) {
    const uint32_t opening = (next_ + i) % openings;
    if (busy_[opening] == 0) {
      continue;
    }
    if (const std::optional<SgVerdict> verdict = readOne(opening, out)) {
      next_ = (opening + 1) % openings;
      return verdict;
    }
  }
  return std::nullopt;
}

std::optional<SgVerdict> SgTransport::readOne(uint32_t opening, ScsiReply& out) {
  sg_io_hdr header{};
  header.interface_id = 'S';
  header.pack_id = -1;
  while (read(device_.openings()[opening], &header, sizeof(header)) < 0) {
    const int error = errno;
    if (error == EAGAIN) {
      return std::nullopt;
    }
    if (saysGone(error)) {
      lose("is gone");
    }
    if (error != EINTR) {
      device_.fail("does not hand back its answers: " + textOf(error) + "; see the kernel's messages");
    }
  }
  const auto index = static_cast<uint32_t>(header.pack_id);
  const Pending& pending = pending_.at(index);
  --busy_[opening];
  free_.push_back(index);

  const SgVerdict verdict = judge({.host = header.host_status,
                                   .driver = header.driver_status,
                                   .scsi = header.status,
                                   .senseBytes = header.sb_len_wr},
                                  pending.repeatable);
  out.slot = pending.slot;
  out.status = verdict.status;
  const auto residual = static_cast<unsigned>(std::max(header.resid, 0));
  out.bytesMoved = header.dxfer_len - std::min(residual, header.dxfer_len);
  out.senseBytes = verdict.status == scsi_status::checkCondition ? header.sb_len_wr : 0;
  out.sense = pending.sense;
  return verdict;
}

bool SgTransport::waitUpTo(uint64_t microseconds) {
  if (!ready_.empty()) {
    return true;
  }
  if (lost_ || free_.size() == pending_.size()) {
    return false;
  }
  const timespec limit{.tv_sec = static_cast<time_t>(microseconds / 1'000'000),
                       .tv_nsec = static_cast<long>(microseconds % 1'000'000 * 1'000)};
  // What came of it, an error too, is for `poll` to find.
  ppoll(waits_.data(), waits_.size(), &limit, nullptr);
  return true;
}

void SgTransport::waitForAnswer() {
  // Openings without requests never become readable.
  const std::chrono::milliseconds limit = std::chrono::seconds(timeoutSeconds_) + errorHandling;
  const auto deadline = Clock::now() + limit;
  int found = 0;
  do {
    const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now()).count();
    found = ::poll(waits_.data(), waits_.size(), static_cast<int>(std::max<int64_t>(left, 0)));
  } while (found < 0 && errno == EINTR);
  if (found <= 0) {
    device_.fail("has not answered for " + std::to_string(limit.count() / 1000) +
                 " seconds, nor has the kernel given the request up; see the kernel's messages");
  }
  for (const pollfd& wait : waits_) {
    if ((wait.revents & POLLIN) == 0 && (wait.revents & (POLLERR | POLLHUP)) != 0) {
      lose("is gone");
    }
  }
}

void SgTransport::resetUnit() {
  ready_.clear();
  askForReset();
  lost_ = false;
  drain();
}

void SgTransport::askForReset() {
  const auto deadline = Clock::now() + std::chrono::seconds(timeoutSeconds_) + errorHandling;
  int level = SG_SCSI_RESET_DEVICE | noEscalation;
  while (ioctl(device_.openings().front(), SG_SCSI_RESET, &level) != 0) {
    const int error = errno;
    // The error handler is at work, or somebody else's reset.
    const bool later = error == EAGAIN || error == EBUSY || error == EINTR;
    if (later && Clock::now() < deadline) {
      std::this_thread::sleep_for(resetPause);
      continue;
    }
    if (saysGone(error)) {
      device_.fail("is gone: " + textOf(error) + "; connect the drive again and see /dev/sg*");
    }
    if (error == EACCES || error == EPERM) {
      device_.fail("may only be reset by root; leave the resets out");
    }
    device_.fail("cannot be reset: " + textOf(error) +
                 (later ? "; see the kernel's messages"
                        : "; its host adapter may have no reset of one unit: leave the resets out"));
  }
}

void SgTransport::drain() {
  ScsiReply dropped;
  while (free_.size() < pending_.size()) {
    if (!take(dropped)) {
      waitForAnswer();
    }
  }
}

void SgTransport::lose(const std::string& why) {
  lost_ = true;
  ready_.clear();
  throw DriveConnectionLost("SCSI device '" + device_.path() + "' " + why +
                            "; see its cable and the kernel's messages");
}

}  // namespace corvane::host
