#pragma once

#include <cstdint>
#include <string>

#include "host/drive/DriveAddress.h"

namespace corvane::host {

/// Where an iSCSI logical unit is, and who asks for it.
struct IscsiUrl {
  std::string host;  ///< a name or an address; one of version 6 in brackets
  uint16_t port = 3260;
  std::string user;      ///< of CHAP; empty: the target is not asked to know anybody
  std::string password;  ///< must not come into any message or document
  std::string target;    ///< the name of the target, such as "iqn.2026-01.example:disk"
  uint32_t lun = 0;

  /// "host:port".
  std::string portal() const { return host + ":" + std::to_string(port); }
};

/// Reads "//[user[%password]@]host[:port]/target/lun", the target of an address.
///
/// A user or a password that the address does not have comes from the environment, LIBISCSI_CHAP_USERNAME and
/// LIBISCSI_CHAP_PASSWORD; so does a password that is `passwordMask`. Throws DriveAddressError.
IscsiUrl parseIscsiUrl(const DriveAddress& address);

}  // namespace corvane::host
