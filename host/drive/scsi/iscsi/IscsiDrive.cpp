#include "host/drive/scsi/iscsi/IscsiDrive.h"

#include "host/drive/scsi/ScsiDrive.h"
#include "host/drive/scsi/iscsi/IscsiTransport.h"

namespace corvane::host {
namespace {

constexpr uint64_t mostSeconds = 86'400;

uint32_t takeMs(DriveAddress& address, std::string_view key, uint32_t otherwiseMs, uint64_t leastSeconds) {
  return static_cast<uint32_t>(address.number(key, otherwiseMs / 1000, leastSeconds, mostSeconds) * 1000);
}

/// What an address says.
struct IscsiAddress {
  IscsiSettings transport;
  ScsiDriveSettings unit;
};

IscsiAddress takeSettings(DriveAddress& address) {
  IscsiAddress taken;
  IscsiSettings& settings = taken.transport;
  settings.url = parseIscsiUrl(address);
  settings.initiator = address.anyText("initiator", settings.initiator);
  settings.connectMs = takeMs(address, "connect", settings.connectMs, 1);
  settings.reconnectMs = takeMs(address, "reconnect", settings.reconnectMs, 0);
  settings.resetMs = takeMs(address, "reset", settings.resetMs, 1);
  settings.timeoutMs = takeMs(address, "timeout", settings.timeoutMs, 0);
  taken.unit = takeScsiDriveSettings(address);
  address.checkAllTaken();
  return taken;
}

}  // namespace

std::unique_ptr<Drive> openIscsiDrive(DriveAddress& address, uint32_t maxOutstanding) {
  IscsiAddress settings = takeSettings(address);
  settings.transport.depth = maxOutstanding;
  return makeScsiDrive(std::make_unique<IscsiTransport>(settings.transport), settings.unit, maxOutstanding);
}

void checkIscsiAddress(DriveAddress& address) { takeSettings(address); }

std::string iscsiDriveHelp() {
  return "iscsi://[USER[%PASSWORD]@]HOST[:PORT]/TARGET/LUN[,key=value]...\n"
         "  a logical unit of an iSCSI target, port 3260 when none is given; its content is overwritten\n"
         "  the password may come from LIBISCSI_CHAP_PASSWORD instead; it is printed and kept nowhere\n"
         "  initiator=IQN    the name under which the target gets to know this host; iqn.2026-01.corvane:tester\n"
         "  connect=10       seconds for connection and login\n"
         "  reconnect=30     seconds in which a lost connection is made again; 0: one attempt\n"
         "  reset=10         seconds for the answer to a reset or an abort, before the connection is dropped\n"
         "  timeout=0        seconds after which a command is aborted; 0: never\n" +
         scsiDriveKeysHelp();
}

}  // namespace corvane::host
