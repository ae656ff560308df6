#include "host/drive/DriveFactory.h"

#include <array>
#include <string>

#include "host/drive/DriveAddress.h"
#include "host/drive/block/BlockDrive.h"
#include "host/drive/file/FileDrive.h"
#include "host/drive/nvme/NvmeDrive.h"
#include "host/drive/scsi/iscsi/IscsiDrive.h"
#include "host/drive/scsi/sg/SgDrive.h"
#include "host/drive/sim/SimDrive.h"

namespace corvane::host {
namespace {

struct Opening {
  DriveAddress& address;
  uint32_t maxOutstanding;
  uint64_t seed;
  Overwriting overwriting;
};

/// Whether a kind of drive may hold what somebody wants to keep, and how the system knows it.
enum class Keeps : uint8_t {
  nothing,  ///< what was named for a test, or lives only for it
  device,   ///< the target of the address is a device of this system, whose block device is claimed when it is opened
  generic,  ///< the same, but what opens it knows nothing of its block device
  unit      ///< something elsewhere, of which this system knows nothing
};

struct KindOfDrive {
  const char* scheme;
  Keeps keeps;
  std::unique_ptr<Drive> (*open)(const Opening& opening);
  void (*check)(DriveAddress& address);
  std::string (*help)();
};

/// In the order of their names.
constexpr std::array kinds{
    KindOfDrive{"block", Keeps::device,
                [](const Opening& o) { return openBlockDrive(o.address, o.maxOutstanding, o.overwriting); },
                checkBlockAddress, blockDriveHelp},
    KindOfDrive{"file", Keeps::nothing, [](const Opening& o) { return openFileDrive(o.address, o.maxOutstanding); },
                checkFileAddress, fileDriveHelp},
    KindOfDrive{"iscsi", Keeps::unit, [](const Opening& o) { return openIscsiDrive(o.address, o.maxOutstanding); },
                checkIscsiAddress, iscsiDriveHelp},
    KindOfDrive{"nvme", Keeps::device,
                [](const Opening& o) { return openNvmeDrive(o.address, o.maxOutstanding, o.overwriting); },
                checkNvmeAddress, nvmeDriveHelp},
    KindOfDrive{"sg", Keeps::generic, [](const Opening& o) { return openSgDrive(o.address, o.maxOutstanding); },
                checkSgAddress, sgDriveHelp},
    KindOfDrive{"sim", Keeps::nothing, [](const Opening& o) { return openSimDrive(o.address, o.seed); },
                checkSimAddress, simDriveHelp}};

/// "block:, file:, … and sim:".
std::string allSchemes() {
  std::string text;
  for (size_t i = 0; i < kinds.size(); ++i) {
    text += i == 0 ? "" : i + 1 < kinds.size() ? ", " : " and ";
    text += std::string(kinds[i].scheme) + ":";
  }
  return text;
}

/// The kind that an address names.
const KindOfDrive& kindOf(const DriveAddress& address) {
  for (const KindOfDrive& kind : kinds) {
    if (address.scheme() == kind.scheme) {
      return kind;
    }
  }
  // Without "iscsi://" in front, user and password stand where the kind should.
  const std::string shown = maskedAddress(address.text());
  address.refuse("'" + shown.substr(0, shown.find(':')) + ":' is not a kind of drive; there are " + allSchemes());
}

}  // namespace

std::unique_ptr<Drive> openDrive(std::string_view text, uint32_t maxOutstanding, uint64_t seed, Overwriting overwriting,
                                 AtStake* stake) {
  DriveAddress address(text);
  const Opening opening{address, maxOutstanding, seed, overwriting};
  const KindOfDrive& kind = kindOf(address);
  if (kind.keeps == Keeps::nothing) {
    return kind.open(opening);
  }
  const GuardedDevice device{.name = maskedAddress(address.text()),
                             .node = kind.keeps == Keeps::unit ? "" : address.target(),
                             .openerClaims = kind.keeps != Keeps::generic};
  return openGuarded(device, overwriting, stake, [&] { return kind.open(opening); });
}

void checkDriveAddress(std::string_view text) {
  DriveAddress address(text);
  kindOf(address).check(address);
}

std::string driveAddressHelp() {
  std::string text;
  for (const KindOfDrive& kind : kinds) {
    text += text.empty() ? "" : "\n";
    text += kind.help();
  }
  return text;
}

}  // namespace corvane::host
