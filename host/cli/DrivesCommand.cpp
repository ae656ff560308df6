#include "host/cli/DrivesCommand.h"

#include "host/base/TextFormat.h"
#include "host/cli/ExitStatus.h"
#include "host/cli/NewPaths.h"
#include "host/drive/DriveFactory.h"
#include "host/framework/TagPool.h"

namespace corvane::host {
namespace {

std::string yesNo(bool yes) { return yes ? "yes\n" : "no\n"; }

}  // namespace

std::string driveText(const Drive& drive) {
  const DriveGeometry& shape = drive.geometry();
  const DriveCapabilities& can = drive.capabilities();
  std::string text = printable(drive.description()) + "\n";
  text += "  capacity              " + groupedNumber(shape.blocks) + " blocks, " +
          capacityText(shape.blocks * shape.blockSize) + "\n";
  text += "  logical block         " + std::to_string(shape.blockSize) + " bytes\n";
  text += "  physical block        " + std::to_string(uint64_t{shape.blockSize} << shape.physicalExponent) + " bytes\n";
  text +=
      "  protection            " +
      (shape.protectionBytes == 0 ? std::string("none\n") : std::to_string(shape.protectionBytes) + " bytes a block\n");
  text += "  commands at once      " + std::to_string(drive.maxOutstanding()) + "\n";
  text += "  atomic write          " + yesNo(can.atomicWrite);
  text += "  write-same            " + yesNo(can.writeSame);
  text += "  trim                  " + yesNo(can.trim);
  text += "  verify (byte check)   " + yesNo(can.verify);
  text += "  cache flush           " + yesNo(can.syncCache);
  text += "  device reset          " + yesNo(can.deviceReset);
  text += "  power toggle          " + yesNo(can.powerToggle);
  text += "  volatile cache        " + yesNo(can.volatileCache);
  return text;
}

int showDriveAddresses(Console& out) {
  const std::string help = driveAddressHelp();
  out.write(help.ends_with('\n') ? help : help + "\n");
  return exit_status::clean;
}

int showDrive(Console& out, const std::string& address) {
  NewPaths made;
  made.watchDrive(address);
  constexpr uint64_t anySeed = 1;
  AtStake stake;
  const std::unique_ptr<Drive> drive = openDrive(address, TagPool::maxTags, anySeed, Overwriting::nothing, &stake);
  out.write(driveText(*drive));
  for (const std::string& use : stake.uses) {
    out.line("  in use                " + printable(use));
  }
  for (const std::string& content : stake.contents) {
    out.line("  holds                 " + printable(content));
  }
  return exit_status::clean;
}

}  // namespace corvane::host
