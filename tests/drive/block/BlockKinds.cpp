#include "host/drive/DriveFactory.h"
#include "tests/drive/ConformanceKinds.h"
#include "tests/support/LoopDevice.h"

namespace corvane::host {
namespace {

Kind loop(const std::string& name, uint32_t blockSize, const std::string& keys = "") {
  return {name, [blockSize, keys](const tests::TempFolder& folder) {
            constexpr uint64_t blocks = 16384;
            Stand stand;
            stand.missing = tests::LoopDevice::missing();
            if (stand.missing.empty()) {
              const auto device =
                  std::make_shared<const tests::LoopDevice>(folder / "loop.img", blocks * blockSize, blockSize);
              stand.under = device;
              stand.drive = openDrive(device->path() + keys, conformanceDepth);
            }
            return stand;
          }};
}

}  // namespace

std::vector<Kind> blockKinds() {
  return {loop("Block", 512),
          loop("Block4096", 4096),
          loop("BlockThreads", 512, ",engine=threads"),
          loop("BlockSync", 512, ",engine=sync"),
          loop("BlockZeros", 4096, ",trim=zero"),
          loop("BlockDiscard", 512, ",trim=discard"),
          loop("BlockDiscardThreads", 512, ",trim=discard,engine=threads"),
          loop("BlockDiscardSync", 512, ",trim=discard,engine=sync")};
}

}  // namespace corvane::host
