#include "host/drive/scsi/iscsi/IscsiConnection.h"

// The library's headers need each other in this order.
#include <iscsi/iscsi.h>
#include <iscsi/scsi-lowlevel.h>
#include <poll.h>
#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <system_error>

#include "host/drive/DriveError.h"

namespace corvane::host {
namespace {

constexpr auto logoutTime = std::chrono::milliseconds(300);

int msUntil(IscsiConnection::Clock::time_point end) {
  const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(end - IscsiConnection::Clock::now()).count();
  return static_cast<int>(std::clamp<int64_t>(left + 1, 0, 1000));
}

int errorOf(int socket) {
  int error = 0;
  socklen_t bytes = sizeof error;
  return getsockopt(socket, SOL_SOCKET, SO_ERROR, &error, &bytes) == 0 ? error : errno;
}

}  // namespace

IscsiConnection::IscsiConnection(const IscsiSettings& settings, uint32_t qualifier)
    : settings_(settings), context_(iscsi_create_context(settings.initiator.c_str())) {
  if (context_ == nullptr) {
    throw DriveError("cannot set up a session as initiator '" + settings.initiator + "'; choose another initiator=");
  }
  try {
    const Clock::time_point end = Clock::now() + std::chrono::milliseconds(settings.connectMs);
    configure(qualifier);
    connect(end);
    logIn(end);
  } catch (...) {
    iscsi_destroy_context(context_);
    throw;
  }
}

IscsiConnection::~IscsiConnection() {
  logOut();
  iscsi_destroy_context(context_);
}

void IscsiConnection::configure(uint32_t qualifier) {
  iscsi_set_noautoreconnect(context_, 1);
  iscsi_set_session_type(context_, ISCSI_SESSION_NORMAL);
  // The same one each time: should the target not have noticed that the old connection is gone, the login ends it.
  iscsi_set_isid_random(context_, qualifier >> 8, qualifier & 0xFF);
  iscsi_set_targetname(context_, settings_.url.target.c_str());
  if (!settings_.url.user.empty()) {
    iscsi_set_initiator_username_pwd(context_, settings_.url.user.c_str(), settings_.url.password.c_str());
  }
}

void IscsiConnection::connect(Clock::time_point end) {
  answered_ = false;
  if (iscsi_connect_async(context_, settings_.url.portal().c_str(), answered, this) != 0) {
    // The library says in a sentence of its own that no name service knows the host.
    const bool unknown = reason().find("resolv") != std::string::npos;
    fail("cannot be reached: " + (unknown ? "nobody knows a host of that name" : reason()) + "; check the host's name");
  }
  await(end);
  if (!answered_ && !broken_) {
    fail("does not answer within " + std::to_string(settings_.connectMs / 1000) +
         " s; check host and port, or wait longer with connect=");
  }
  if (broken_ || status_ != SCSI_STATUS_GOOD) {
    fail("cannot be reached: " + reason() + "; check host and port, and whether the target runs");
  }
}

void IscsiConnection::logIn(Clock::time_point end) {
  constexpr const char* wrongCredentials = "(513)";  // RFC 7143, 11.13.5: status class 2, detail 1
  constexpr const char* noAccess = "(514)";
  constexpr const char* unknownTarget = "(515)";
  answered_ = false;
  if (iscsi_login_async(context_, answered, this) != 0) {
    fail("cannot be asked for a login: " + reason());
  }
  await(end);
  const std::string why = reason();
  const auto says = [&](const char* code) { return why.find(code) != std::string::npos; };
  if (answered_ && status_ == SCSI_STATUS_REDIRECT) {
    const char* place = iscsi_get_target_address(context_);
    fail(std::string("says that the target has moved; name its new portal") +
         (place != nullptr && *place != 0 ? " " + std::string(place) : ""));
  }
  if (says(wrongCredentials)) {
    fail(settings_.url.user.empty()
             ? "wants to know who logs in; put user%password@ in front of the host"
             : "does not accept user '" + settings_.url.user + "' with this password; correct them");
  }
  if (says(noAccess)) {
    fail("does not let initiator '" + settings_.initiator + "' in; allow it there, or name another with initiator=");
  }
  if (says(unknownTarget)) {
    fail("has no target '" + settings_.url.target + "'; correct its name");
  }
  if (!answered_ && !broken_) {
    fail("takes the connection but does not answer to the login within " + std::to_string(settings_.connectMs / 1000) +
         " s; check whether the target works, or wait longer with connect=");
  }
  if (!answered_ || broken_ || status_ != SCSI_STATUS_GOOD) {
    fail("refuses the login: " + why + "; check the settings of target '" + settings_.url.target + "'");
  }
}

void IscsiConnection::logOut() {
  // What is outstanding would be answered first, and nobody is left who wants to know.
  if (broken_ || iscsi_is_logged_in(context_) == 0 || iscsi_queue_length(context_) != 0) {
    return;
  }
  answered_ = false;
  if (iscsi_logout_async(context_, answered, this) == 0) {
    await(Clock::now() + logoutTime);
  }
}

bool IscsiConnection::serve(int waitMs) {
  if (broken_) {
    return false;
  }
  pollfd place{.fd = iscsi_get_fd(context_),
               .events = static_cast<int16_t>(iscsi_which_events(context_) | POLLRDHUP),
               .revents = 0};
  const int ready = poll(&place, 1, waitMs);
  if (ready <= 0) {
    broken_ = ready < 0 && errno != EINTR;
    return !broken_;
  }
  // With the reconnecting switched off the library says nothing of a lost connection when nobody has a task there.
  constexpr int ends = POLLRDHUP | POLLHUP | POLLERR | POLLNVAL;
  if ((place.revents & POLLERR) != 0) {
    socketError_ = errorOf(place.fd);
  }
  const bool served = iscsi_service(context_, place.revents & ~POLLRDHUP) == 0;
  broken_ = broken_ || !served || (place.revents & ends) != 0;
  return !broken_;
}

bool IscsiConnection::send() {
  if (!broken_ && iscsi_service(context_, POLLOUT) != 0) {
    broken_ = true;
  }
  return !broken_;
}

bool IscsiConnection::allSent() const {
  return iscsi_out_queue_length(context_) == 0 && (iscsi_which_events(context_) & POLLOUT) == 0;
}

IscsiConnection::Answer IscsiConnection::resetUnit(Clock::time_point end) {
  while (!allSent() && Clock::now() < end) {
    if (!serve(msUntil(end))) {
      return Answer::none;
    }
  }
  if (!allSent()) {
    return Answer::none;
  }
  answered_ = false;
  if (iscsi_task_mgmt_lun_reset_async(context_, settings_.url.lun, resetAnswered, this) != 0) {
    return Answer::none;
  }
  await(end);
  if (!answered_ || broken_ || status_ != SCSI_STATUS_GOOD) {
    return Answer::none;
  }
  return response_ == ISCSI_TMR_FUNC_COMPLETE ? Answer::done : Answer::refused;
}

void IscsiConnection::await(Clock::time_point end) {
  while (!answered_ && Clock::now() < end && serve(msUntil(end))) {
  }
}

std::string IscsiConnection::reason() const {
  if (socketError_ != 0) {
    return std::generic_category().message(socketError_);
  }
  // Some of the library's texts have an end of line.
  std::string text = iscsi_get_error(context_);
  while (!text.empty() && (text.back() == '\n' || text.back() == ' ' || text.back() == '.')) {
    text.pop_back();
  }
  return text.empty() ? "it ended the connection" : text;
}

void IscsiConnection::fail(const std::string& what) const {
  throw DriveError("iSCSI portal " + settings_.url.portal() + " " + what);
}

void IscsiConnection::answered(iscsi_context*, int status, void*, void* self) {
  auto& connection = *static_cast<IscsiConnection*>(self);
  connection.answered_ = true;
  connection.status_ = status;
}

void IscsiConnection::resetAnswered(iscsi_context* context, int status, void* data, void* self) {
  static_cast<IscsiConnection*>(self)->response_ = data == nullptr ? 0 : *static_cast<uint32_t*>(data);
  answered(context, status, data, self);
}

}  // namespace corvane::host
