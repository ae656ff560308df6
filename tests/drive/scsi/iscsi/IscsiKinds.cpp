#include <filesystem>
#include <fstream>

#include "host/drive/DriveFactory.h"
#include "tests/drive/ConformanceKinds.h"
#include "tests/support/TgtTarget.h"

namespace corvane::host {
namespace {

Kind unit(const std::string& name, uint32_t blockSize, const std::string& keys = "") {
  return {name, [blockSize, keys](const tests::TempFolder& folder) {
            if (const std::string missing = tests::TgtTarget::missing(); !missing.empty()) {
              return Stand{.under = nullptr, .drive = nullptr, .missing = missing};
            }
            constexpr uint64_t blocks = 16384;
            const std::string file = folder / "unit.img";
            std::ofstream(file).close();
            std::filesystem::resize_file(file, blocks * blockSize);
            auto target =
                std::make_shared<tests::TgtTarget>(std::vector{tests::TgtUnit{.file = file, .blockSize = blockSize}});
            return Stand{
                .under = target, .drive = openDrive(target->address() + keys, conformanceDepth), .missing = ""};
          }};
}

}  // namespace

std::vector<Kind> iscsiKinds() {
  return {unit("Iscsi", 512), unit("Iscsi4096", 4096), unit("IscsiHostVerify", 512, ",verify=host")};
}

}  // namespace corvane::host
