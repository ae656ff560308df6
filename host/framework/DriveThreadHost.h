#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <string_view>

#include "host/framework/SharedVariables.h"
#include "host/framework/TagPool.h"
#include "vdl/DriveThread.h"

namespace corvane::host {

/// Receives every line of one drive's event log, on the thread that logs it.
using LogSink = std::function<void(int level, std::string_view text)>;

/// Everything behind one `vdl::DriveThread`: the drive's description, log, tags and shared variables.
class DriveThreadHost {
 public:
  struct Settings {
    std::string name;          ///< display name, part of report file names
    uint32_t blockSize = 512;  ///< logical block, bytes
    bool protectionEnabled = false;
    uint32_t protectionBytes = 0;   ///< per block, transferred behind each block when enabled
    uint32_t physicalExponent = 0;  ///< physical block = blockSize << physicalExponent
    uint32_t queueDepth = 1;        ///< 1 to 1024
    int ostraDevice = -1;           ///< -1: no device interface attached
    LogSink log;                    ///< null: lines are dropped
  };

  /// Throws std::invalid_argument for a queue depth outside 1 to 1024 or a block size of 0.
  explicit DriveThreadHost(Settings settings);
  ~DriveThreadHost();
  DriveThreadHost(const DriveThreadHost&) = delete;
  DriveThreadHost& operator=(const DriveThreadHost&) = delete;

  vdl::DriveThread& thread();
  TagPool& tags();
  SharedVariables& variables();
  /// What the agent registered with `registerDriveData`; null before that.
  void* driveData() const;
  /// Bytes of one block on the wire: logical block plus enabled protection information.
  uint32_t sectorBytes() const;

 private:
  struct Parts;
  std::unique_ptr<Parts> parts_;
};

}  // namespace corvane::host
