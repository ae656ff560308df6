#include "host/drive/scsi/iscsi/IscsiTransport.h"

// The library's headers need each other in this order.
#include <iscsi/iscsi.h>
#include <iscsi/scsi-lowlevel.h>

#include <algorithm>
#include <array>
#include <csignal>
#include <cstring>
#include <random>
#include <thread>

#include "host/drive/DriveError.h"

namespace corvane::host {
namespace {

constexpr uint64_t largestTransfer = uint64_t{8} << 20;
constexpr auto lookPause = std::chrono::milliseconds(50);
constexpr int longestWaitMs = 50;
constexpr auto firstPause = std::chrono::milliseconds(100);
constexpr auto longestPause = std::chrono::milliseconds(1000);
constexpr uint32_t firstSlot = 0;

namespace operation_code {
constexpr uint8_t inquiry = 0x12;
}

/// Whether the medium is as it was, whatever became of the command. One that is not in the list may have changed it.
bool leavesMedium(uint8_t code) {
  // TEST UNIT READY, REQUEST SENSE, INQUIRY, MODE SENSE, READ CAPACITY (10 and 16), READ, VERIFY, SYNCHRONIZE CACHE,
  // REPORT LUNS, MAINTENANCE IN
  constexpr std::array<uint8_t, 18> codes{0x00, 0x03, 0x08, 0x12, 0x1A, 0x25, 0x28, 0x2F, 0x35,
                                          0x5A, 0x88, 0x8F, 0x91, 0x9E, 0xA0, 0xA3, 0xA8, 0xAF};
  return std::find(codes.begin(), codes.end(), code) != codes.end();
}

/// So that two sessions of this host, of one run or of two, are two to the target.
uint32_t newQualifier() {
  std::random_device device;
  return device();
}

/// The library writes to its socket without asking for no signal, and a target may be gone at any time.
void ignoreBrokenPipes() {
  struct sigaction now {};
  if (sigaction(SIGPIPE, nullptr, &now) == 0 && now.sa_handler == SIG_DFL) {
    std::signal(SIGPIPE, SIG_IGN);
  }
}

std::string seconds(uint32_t ms) { return std::to_string(ms / 1000) + " s"; }

}  // namespace

struct IscsiTransport::Slot {
  struct FreeTask {
    void operator()(scsi_task* ended) const { scsi_free_scsi_task(ended); }
  };
  IscsiTransport* owner = nullptr;
  std::unique_ptr<scsi_task, FreeTask> task;  ///< null: the slot is free
  scsi_iovec piece{};
  Clock::time_point began;
  bool answered = false;
  bool leavesMedium = false;
  bool aborting = false;  ///< a cancellation is the end of our own abort
  uint64_t bytes = 0;
  ScsiReply reply;
};

IscsiTransport::IscsiTransport(const IscsiSettings& settings)
    : settings_(settings), qualifier_(newQualifier()), slots_(settings.depth), ready_(settings.depth) {
  ignoreBrokenPipes();
  for (Slot& slot : slots_) {
    slot.owner = this;
    free_.push_back(&slot);
  }
  connect();
  checkUnit();
}

IscsiTransport::~IscsiTransport() {
  dropping_ = true;
  connection_.reset();
}

std::string IscsiTransport::description() const {
  return "iSCSI " + settings_.url.portal() + " " + settings_.url.target + " LUN " + std::to_string(settings_.url.lun);
}

uint64_t IscsiTransport::mostBytes() const { return largestTransfer; }

uint32_t IscsiTransport::mostRequests() const { return static_cast<uint32_t>(slots_.size()); }

void IscsiTransport::connect() {
  connection_ = std::make_unique<IscsiConnection>(settings_, qualifier_);
  cancelled_ = false;
}

void IscsiTransport::checkUnit() {
  constexpr uint8_t bytes = 36;
  std::array<uint8_t, bytes> data{};
  ScsiRequest request;
  request.slot = firstSlot;
  request.cdb[0] = operation_code::inquiry;
  request.cdb[4] = bytes;
  request.cdbBytes = 6;
  request.direction = ScsiRequest::Data::fromUnit;
  request.data = data.data();
  request.bytes = bytes;
  submit(request);
  ScsiReply reply;
  const Clock::time_point end = Clock::now() + std::chrono::milliseconds(settings_.connectMs);
  while (!poll(reply, false)) {
    if (Clock::now() >= end) {
      connection_->setBroken();
      throw DriveError(description() + " does not answer to an INQUIRY within " + seconds(settings_.connectMs) +
                       "; check whether the target works, or wait longer with connect=");
    }
    connection_->serve(longestWaitMs);
  }
  // SPC: a target answers for a unit that it does not have, with this peripheral qualifier and type, or refuses.
  constexpr uint8_t noUnit = 0x7F;
  if (reply.status != scsi_status::good || reply.bytesMoved == 0 || data[0] == noUnit) {
    throw DriveError("iSCSI target " + settings_.url.target + " at " + settings_.url.portal() + " has no LUN " +
                     std::to_string(settings_.url.lun) + "; name one that it has, behind the last '/'");
  }
}

void IscsiTransport::submit(const ScsiRequest& request) {
  throwIfLost();
  if (free_.empty()) {
    throw std::logic_error("more requests than the transport takes");
  }
  Slot& slot = *free_.back();
  makeTask(slot, request);
  free_.pop_back();
  ++outstanding_;
  if (iscsi_scsi_command_async(connection_->context(), static_cast<int>(settings_.url.lun), slot.task.get(), completed,
                               nullptr, &slot) != 0) {
    lose(iscsi_get_error(connection_->context()));
  }
  connection_->send();
  throwIfLost();
}

void IscsiTransport::makeTask(Slot& slot, const ScsiRequest& request) {
  using Data = ScsiRequest::Data;
  std::array<uint8_t, 16> cdb = request.cdb;
  const int direction = request.direction == Data::none     ? SCSI_XFER_NONE
                        : request.direction == Data::toUnit ? SCSI_XFER_WRITE
                                                            : SCSI_XFER_READ;
  slot.task.reset(
      scsi_create_task(static_cast<int>(request.cdbBytes), cdb.data(), direction, static_cast<int>(request.bytes)));
  if (slot.task == nullptr) {
    throw std::bad_alloc();
  }
  slot.piece = {request.data, request.bytes};
  if (request.direction == Data::toUnit) {
    scsi_task_set_iov_out(slot.task.get(), &slot.piece, 1);
  } else if (request.direction == Data::fromUnit) {
    scsi_task_set_iov_in(slot.task.get(), &slot.piece, 1);
  }
  slot.began = Clock::now();
  slot.answered = false;
  slot.aborting = false;
  slot.leavesMedium = leavesMedium(request.cdb[0]);
  slot.bytes = request.bytes;
  slot.reply.slot = request.slot;
  slot.reply.status = 0;
  slot.reply.bytesMoved = 0;
  slot.reply.senseBytes = 0;
}

void IscsiTransport::completed(iscsi_context*, int status, void*, void* data) {
  auto& slot = *static_cast<Slot*>(data);
  IscsiTransport& self = *slot.owner;
  if (self.dropping_) {
    return;
  }
  ScsiReply& reply = slot.reply;
  if (slot.aborting && status == SCSI_STATUS_CANCELLED) {
    // A command that left the medium alone can be sent again, and whether a write was carried out nobody knows.
    reply.status = slot.leavesMedium ? scsi_status::busy : scsi_status::aborted;
  } else if (status < 0 || status > 0xFF) {
    self.cancelled_ = true;
    return;
  } else {
    reply.status = static_cast<uint32_t>(status);
    const scsi_task& task = *slot.task;
    const uint64_t missing = task.residual_status == SCSI_RESIDUAL_UNDERFLOW ? task.residual : 0;
    reply.bytesMoved = slot.bytes - std::min<uint64_t>(slot.bytes, missing);
    // The sense data stand behind a length of two bytes (RFC 7143, 11.4.7).
    if (status == SCSI_STATUS_CHECK_CONDITION && task.datain.data != nullptr && task.datain.size > 2) {
      const uint32_t said = static_cast<uint32_t>(task.datain.data[0]) << 8 | task.datain.data[1];
      const uint32_t there = std::min(said, static_cast<uint32_t>(task.datain.size) - 2);
      reply.senseBytes = std::min(there, static_cast<uint32_t>(reply.sense.size()));
      std::memcpy(reply.sense.data(), task.datain.data + 2, reply.senseBytes);
    }
  }
  slot.answered = true;
  --self.outstanding_;
  self.ready_.pushBack(&slot);
  if (self.abort_.slot == &slot) {
    self.abort_.slot = nullptr;
  }
}

bool IscsiTransport::takeReady(ScsiReply& out) {
  Slot* slot = nullptr;
  if (!ready_.takeFront(slot)) {
    return false;
  }
  out = slot->reply;
  free(*slot);
  return true;
}

void IscsiTransport::free(Slot& slot) {
  slot.task.reset();
  free_.push_back(&slot);
}

bool IscsiTransport::poll(ScsiReply& out, bool wait) {
  if (takeReady(out)) {
    return true;
  }
  throwIfLost();
  if (wait && outstanding_ == 0) {
    return false;
  }
  const Clock::time_point began = wait ? Clock::now() : Clock::time_point();
  for (;;) {
    connection_->serve(wait ? longestWaitMs : 0);
    watchTimes();
    if (takeReady(out)) {
      return true;
    }
    throwIfLost();
    if (!wait) {
      return false;
    }
    if (Clock::now() - began > std::chrono::milliseconds(settings_.silentMs)) {
      lose("it answered nothing for " + seconds(settings_.silentMs));
    }
  }
}

bool IscsiTransport::waitUpTo(uint64_t microseconds) {
  if (!ready_.empty()) {
    return true;
  }
  throwIfLost();
  if (outstanding_ == 0) {
    return false;
  }
  connection_->serve(static_cast<int>(std::min<uint64_t>((microseconds + 999) / 1000, longestWaitMs)));
  watchTimes();
  return true;
}

void IscsiTransport::watchTimes() {
  if (settings_.timeoutMs == 0 || outstanding_ == 0 || connection_->broken() || cancelled_) {
    return;
  }
  if (abort_.running && abort_.answered) {
    endAbort();
  }
  const Clock::time_point now = Clock::now();
  if (now < nextLook_) {
    return;
  }
  nextLook_ = now + lookPause;
  const auto timeout = std::chrono::milliseconds(settings_.timeoutMs);
  for (Slot& slot : slots_) {
    if (slot.task == nullptr || slot.answered || now - slot.began < timeout) {
      continue;
    }
    if (now - slot.began > timeout + std::chrono::milliseconds(settings_.resetMs)) {
      lose("a command was not answered within " + seconds(settings_.timeoutMs) + " and could not be aborted within " +
           seconds(settings_.resetMs));
    }
    startAbort(slot);
  }
}

void IscsiTransport::startAbort(Slot& slot) {
  if (abort_.running || !connection_->allSent()) {
    return;
  }
  abort_ = {.slot = &slot, .running = true};
  if (iscsi_task_mgmt_abort_task_async(connection_->context(), slot.task.get(), abortAnswered, this) != 0) {
    lose(iscsi_get_error(connection_->context()));
  }
  connection_->send();
}

void IscsiTransport::abortAnswered(iscsi_context*, int status, void* data, void* transport) {
  auto& self = *static_cast<IscsiTransport*>(transport);
  const uint32_t response = data == nullptr ? uint32_t{ISCSI_TMR_FUNC_REJECTED} : *static_cast<uint32_t*>(data);
  self.abort_.answered = true;
  self.abort_.accepted =
      status == SCSI_STATUS_GOOD && (response == ISCSI_TMR_FUNC_COMPLETE || response == ISCSI_TMR_TASK_DOES_NOT_EXIST);
}

void IscsiTransport::endAbort() {
  Slot* slot = abort_.slot;
  if (slot != nullptr && !connection_->allSent()) {
    return;  // what the library still has to send of its data would be sent out of memory that is gone
  }
  const bool accepted = abort_.accepted;
  abort_ = {};
  if (slot == nullptr) {
    return;
  }
  if (!accepted) {
    lose("a command was not answered within " + seconds(settings_.timeoutMs) + " and the target refused to abort it");
  }
  slot->aborting = true;
  iscsi_scsi_cancel_task(connection_->context(), slot->task.get());
}

void IscsiTransport::lose(const std::string& why) {
  if (connection_ != nullptr) {
    connection_->setBroken();
  }
  throw DriveConnectionLost(description() + ": the connection is lost: " + why + "; check the target and the network");
}

void IscsiTransport::throwIfLost() {
  if (connection_ == nullptr || connection_->broken() || cancelled_) {
    lose("the target ended it, or the network did");
  }
}

void IscsiTransport::dropAll() {
  dropping_ = true;
  if (connection_ != nullptr && !connection_->broken() && !cancelled_) {
    iscsi_scsi_cancel_all_tasks(connection_->context());
  } else {
    connection_.reset();
  }
  dropping_ = false;
  ready_.clear();
  free_.clear();
  for (Slot& slot : slots_) {
    slot.task.reset();
    free_.push_back(&slot);
  }
  outstanding_ = 0;
  abort_ = {};
}

bool IscsiTransport::resetOnce() {
  const Clock::time_point end = Clock::now() + std::chrono::milliseconds(settings_.resetMs);
  return connection_->resetUnit(end) == IscsiConnection::Answer::done && !cancelled_ && connection_->allSent();
}

void IscsiTransport::resetUnit() {
  if (connection_ != nullptr && !connection_->broken() && !cancelled_ && resetOnce()) {
    dropAll();
    return;
  }
  if (connection_ != nullptr) {
    connection_->setBroken();
  }
  dropAll();
  reconnect();
}

void IscsiTransport::reconnect() {
  const Clock::time_point end = Clock::now() + std::chrono::milliseconds(settings_.reconnectMs);
  Clock::duration pause = firstPause;
  std::string reason;
  do {
    try {
      connect();
      // The commands of the lost connection may still be at work, and what they write must not come after what is
      // written from now on.
      if (resetOnce()) {
        return;
      }
      reason = description() + " does not carry out a LOGICAL UNIT RESET";
      connection_->setBroken();
    } catch (const DriveError& error) {
      reason = error.what();
    }
    connection_.reset();
    std::this_thread::sleep_for(
        std::min<Clock::duration>(pause, std::max(end - Clock::now(), Clock::duration::zero())));
    pause = std::min<Clock::duration>(2 * pause, longestPause);
  } while (Clock::now() < end);
  throw DriveError(description() + ": the connection was lost and could not be made again within " +
                   seconds(settings_.reconnectMs) + " (" + reason + "); a longer time can be set with reconnect=");
}

}  // namespace corvane::host
