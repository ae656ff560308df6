#include "host/drive/DriveError.h"
#include "host/drive/nvme/NvmeDevice.h"
#include "host/drive/nvme/NvmeDrive.h"

namespace corvane::host {
namespace {

NvmeOptions takeOptions(DriveAddress& address) {
  using Trim = NvmeOptions::Trim;
  using Verify = NvmeOptions::Verify;
  NvmeOptions options;
  options.protection = address.word("pi", {"on", "off"}) == "on";
  const std::string trim = address.word("trim", {"auto", "zeroes", "deallocate", "off"});
  options.trim = trim == "zeroes"       ? Trim::writeZeroes
                 : trim == "deallocate" ? Trim::deallocate
                 : trim == "off"        ? Trim::off
                                        : Trim::wherePossible;
  const std::string verify = address.word("verify", {"auto", "compare", "read"});
  options.verify = verify == "compare" ? Verify::compare : verify == "read" ? Verify::read : Verify::wherePossible;
  options.vendorAdmin = address.word("vendor", {"off", "admin"}) == "admin";
  return options;
}

/// Whether commands have metadata in memory of their own. With those, io_uring commands never ended in Linux 6.1, and
/// their process could not be killed.
bool movesSeparateMetadata(NvmePassthrough& passthrough, const std::string& path, const NvmeOptions& options) {
  const NvmeIdentity::Namespace space = identifyNvme(passthrough, path).space;
  return options.protection && space.metadataBytes != 0 && !space.metadataExtended;
}

std::unique_ptr<NvmePassthrough> makePassthrough(const std::string& path, const std::string& engine,
                                                 const NvmeOptions& options, uint32_t depth, Overwriting overwriting) {
  const auto device = std::make_shared<NvmeDevice>(path, overwriting);
  if (engine == "threads") {
    return makeNvmeThreads(device, depth);
  }
  std::string refusal;
  std::unique_ptr<NvmePassthrough> passthrough = makeNvmeUring(device, depth, refusal);
  if (passthrough != nullptr && movesSeparateMetadata(*passthrough, path, options)) {
    refusal = "kernels hang on metadata apart from the data";
    passthrough.reset();
  }
  if (passthrough != nullptr) {
    return passthrough;
  }
  if (engine == "uring") {
    throw DriveError("NVMe device '" + path + "' cannot be used with engine=uring: io_uring commands are refused: " +
                     refusal + "; leave engine= out for a thread pool instead");
  }
  return makeNvmeThreads(device, depth);
}

/// What an address says beside its target.
struct NvmeAddress {
  NvmeOptions options;
  std::string engine;
};

NvmeAddress takeSettings(DriveAddress& address) {
  NvmeAddress settings;
  settings.options = takeOptions(address);
  settings.engine = address.word("engine", {"auto", "uring", "threads"});
  address.checkAllTaken();
  if (address.target().empty()) {
    address.refuse("it names no namespace; write 'nvme:/dev/nvme0n1'");
  }
  return settings;
}

}  // namespace

std::unique_ptr<Drive> openNvmeDrive(DriveAddress& address, uint32_t maxOutstanding, Overwriting overwriting) {
  const auto [options, engine] = takeSettings(address);
  return std::make_unique<NvmeDrive>(makePassthrough(address.target(), engine, options, maxOutstanding, overwriting),
                                     options, address.target(), maxOutstanding);
}

void checkNvmeAddress(DriveAddress& address) { takeSettings(address); }

std::string nvmeDriveHelp() {
  return "nvme:DEVICE[,key=value]...\n"
         "  an NVMe namespace by commands of its own, /dev/nvme0n1 or /dev/ng0n1; its content is overwritten\n"
         "  pi=on            protection information is transferred; off: the controller adds and strips it\n"
         "  trim=auto        Write Zeroes, if it surely leaves zeros; zeroes: or fail; deallocate: Dataset Management; "
         "off\n"
         "  verify=auto      the Compare command where it fits; compare: or fail; read: and compare here\n"
         "  engine=auto      io_uring commands, or ioctl on threads where the kernel refuses them; uring: or fail; "
         "threads\n"
         "  vendor=off       admin: vendor requests go to the controller as admin commands\n";
}

}  // namespace corvane::host
