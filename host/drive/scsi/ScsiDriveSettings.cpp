#include "host/drive/scsi/ScsiDriveSettings.h"

namespace corvane::host {

ScsiDriveSettings takeScsiDriveSettings(DriveAddress& address) {
  using Trim = ScsiDriveSettings::Trim;
  using Verify = ScsiDriveSettings::Verify;
  constexpr uint64_t hour = 3600;
  ScsiDriveSettings settings;
  const std::string trim = address.word("trim", {"auto", "writesame", "unmap", "off"});
  settings.trim = trim == "writesame" ? Trim::writeSame
                  : trim == "unmap"   ? Trim::unmap
                  : trim == "off"     ? Trim::never
                                      : Trim::wherePossible;
  const std::string verify = address.word("verify", {"auto", "device", "host"});
  settings.verify = verify == "device" ? Verify::byUnit : verify == "host" ? Verify::byHost : Verify::wherePossible;
  settings.protection = address.word("pi", {"off", "on"}) == "on";
  settings.readySeconds = static_cast<uint32_t>(address.number("ready", settings.readySeconds, 0, hour));
  return settings;
}

std::string scsiDriveKeysHelp() {
  return "  trim=auto        WRITE SAME of zeros, which unmaps where unmapped blocks read as zeros; writesame: only "
         "with\n"
         "                   unmapping; unmap: UNMAP of whole granules, zeros to the rest; off: no trims\n"
         "  verify=auto      compared by the drive where it takes VERIFY with data; device: or fail; host: read and\n"
         "                   compared here\n"
         "  pi=off           on: protection information is written and read with every block\n"
         "  ready=30         seconds for a drive that is becoming ready\n";
}

}  // namespace corvane::host
