#pragma once

#include <cstdint>
#include <string>

#include "host/drive/scsi/iscsi/IscsiUrl.h"

namespace corvane::host {

/// What an iSCSI transport is told.
struct IscsiSettings {
  IscsiUrl url;
  std::string initiator = "iqn.2026-01.corvane:tester";  ///< the name that the target gets to know
  uint32_t connectMs = 10'000;                           ///< for one connection with its login
  uint32_t reconnectMs = 30'000;  ///< for all attempts to get back to a lost unit; 0: one attempt
  uint32_t resetMs = 10'000;      ///< for the answer to a task management function
  uint32_t timeoutMs = 0;         ///< after which a command is aborted; 0: never
  uint32_t silentMs = 60'000;     ///< after which a unit that is waited for and answers nothing is given up
  uint32_t depth = 32;            ///< most requests at once
};

}  // namespace corvane::host
