#include "host/drive/scsi/iscsi/IscsiUrl.h"

#include <charconv>
#include <cstdlib>
#include <limits>
#include <optional>

namespace corvane::host {
namespace {

constexpr const char* example = "as in iscsi://127.0.0.1:3260/iqn.2026-01.example:disk/1";
constexpr const char* userVariable = "LIBISCSI_CHAP_USERNAME";
constexpr const char* passwordVariable = "LIBISCSI_CHAP_PASSWORD";
constexpr size_t mostNameBytes = 255;         // what the library keeps of a host, a user and a password
constexpr size_t mostTargetBytes = 223;       // RFC 7143, 4.2.7.1
constexpr uint32_t mostLun = (1U << 14) - 1;  // SAM, flat space addressing

std::string fromEnvironment(const char* variable) {
  const char* value = std::getenv(variable);  // NOLINT(concurrency-mt-unsafe): nobody sets variables
  return value == nullptr ? "" : value;
}

std::optional<uint32_t> numberIn(std::string_view text) {
  uint32_t value = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
  return error == std::errc() && end == text.data() + text.size() && !text.empty() ? std::optional(value)
                                                                                   : std::nullopt;
}

class Reader {
 public:
  explicit Reader(const DriveAddress& address) : address_(address), rest_(address.target()) {}

  IscsiUrl read() {
    if (!rest_.starts_with("//")) {
      refuse("'//' has to follow 'iscsi:'");
    }
    rest_.remove_prefix(2);
    readUser();
    readPortal(upToSlash());
    readTarget(upToSlash());
    readLun();
    return url_;
  }

 private:
  [[noreturn]] void refuse(const std::string& fault) const { address_.refuse(fault + "; " + example); }

  /// Takes what is in front of the next "/", and the "/".
  std::string_view upToSlash() {
    const size_t slash = rest_.find('/');
    if (slash == std::string_view::npos) {
      refuse("it has to be host, target and LUN with '/' between them");
    }
    const std::string_view piece = rest_.substr(0, slash);
    rest_.remove_prefix(slash + 1);
    return piece;
  }

  void readUser() {
    if (const size_t at = rest_.rfind('@'); at != std::string_view::npos) {
      const std::string_view who = rest_.substr(0, at);
      rest_.remove_prefix(at + 1);
      const size_t percent = who.find('%');
      url_.user = who.substr(0, percent);
      url_.password = percent == std::string_view::npos ? "" : who.substr(percent + 1);
      if (percent == std::string_view::npos && passwordIn(address_.text())) {
        refuse("'%' and not ':' stands between user and password");
      }
      if (url_.user.empty() || url_.user.find('/') != std::string::npos) {
        refuse("there is no user in front of '@'");
      }
    } else {
      url_.user = fromEnvironment(userVariable);
    }
    completePassword();
  }

  void completePassword() {
    if (url_.user.empty()) {
      return;
    }
    if (url_.password.empty() || url_.password == passwordMask) {
      url_.password = fromEnvironment(passwordVariable);
    }
    if (url_.password.empty()) {
      address_.refuse("the password of user '" + url_.user +
                      "' is missing; write it behind the user, as in user%password@host, or set " + passwordVariable);
    }
    if (url_.user.size() > mostNameBytes || url_.password.size() > mostNameBytes) {
      refuse("user and password may have " + std::to_string(mostNameBytes) + " bytes each");
    }
  }

  void readPortal(std::string_view portal) {
    const size_t bracket = portal.starts_with('[') ? portal.find(']') : 0;
    if (bracket == std::string_view::npos) {
      refuse("']' is missing behind the address '" + std::string(portal) + "'");
    }
    const size_t colon = portal.find(':', bracket);
    if (bracket == 0 && portal.find(':', colon + 1) != std::string_view::npos && colon != std::string_view::npos) {
      refuse("an IPv6 address stands in [ ]");
    }
    if (bracket == 0 && portal.find('%') != std::string_view::npos) {
      refuse("'@' and the host are missing behind the password");
    }
    url_.host = portal.substr(0, colon);
    if (url_.host.empty() || url_.host.size() > mostNameBytes) {
      refuse("'" + url_.host + "' is no host");
    }
    if (colon == std::string_view::npos) {
      return;
    }
    const std::string_view text = portal.substr(colon + 1);
    const std::optional<uint32_t> port = numberIn(text);
    if (!port || *port == 0 || *port > std::numeric_limits<uint16_t>::max()) {
      refuse("'" + std::string(text) + "' is no port, which is a number from 1 to 65535");
    }
    url_.port = static_cast<uint16_t>(*port);
  }

  void readTarget(std::string_view target) {
    if (target.empty() || target.size() > mostTargetBytes) {
      refuse("the name of a target has 1 to " + std::to_string(mostTargetBytes) + " bytes");
    }
    url_.target = target;
  }

  void readLun() {
    const std::optional<uint32_t> lun = numberIn(rest_);
    if (!lun || *lun > mostLun) {
      refuse("'" + std::string(rest_) + "' is no LUN, which is a number from 0 to " + std::to_string(mostLun));
    }
    url_.lun = *lun;
  }

  const DriveAddress& address_;
  std::string_view rest_;
  IscsiUrl url_;
};

}  // namespace

IscsiUrl parseIscsiUrl(const DriveAddress& address) { return Reader(address).read(); }

}  // namespace corvane::host
