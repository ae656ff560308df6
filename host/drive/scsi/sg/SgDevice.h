#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace corvane::host {

/// A SCSI generic device (/dev/sgN), opened as often as many requests at once need it: the kernel takes 16 of one
/// opening. Closes what it opened.
class SgDevice {
 public:
  static constexpr uint32_t requestsOfOne = 16;  ///< SG_MAX_QUEUE

  /// Throws DriveError for a path that leads nowhere, may not be opened or is another kind of device.
  ///
  /// @param requests at once; the device's own queue may be shorter
  SgDevice(const std::string& path, uint32_t requests);
  ~SgDevice();
  SgDevice(const SgDevice&) = delete;
  SgDevice& operator=(const SgDevice&) = delete;

  const std::string& path() const { return path_; }
  /// "2:0:0:0": host adapter, channel, target and unit, as the kernel numbers them.
  const std::string& place() const { return place_; }
  uint32_t requests() const { return requests_; }
  /// Of one request.
  uint64_t mostBytes() const { return mostBytes_; }
  const std::vector<int>& openings() const { return openings_; }

  /// Throws DriveError: "SCSI device 'path' fault".
  [[noreturn]] void fail(const std::string& fault) const;

 private:
  void openOnce();
  /// Closes everything, then as `fail`; for the constructor.
  [[noreturn]] void giveUp(const std::string& fault);
  void readLimits(uint32_t requests);

  std::string path_;
  std::string place_;
  uint32_t requests_ = 0;
  uint64_t mostBytes_ = 0;
  std::vector<int> openings_;
};

}  // namespace corvane::host
