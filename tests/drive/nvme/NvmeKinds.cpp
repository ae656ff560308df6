#include "host/drive/nvme/NvmeDrive.h"
#include "tests/drive/ConformanceKinds.h"
#include "tests/drive/nvme/FakeNvme.h"

namespace corvane::host {
namespace {

/// A drive on a controller in memory.
Kind nvme(const std::string& name, const FakeNvmeSettings& settings, const NvmeOptions& options = {}) {
  return {name, [settings, options](const tests::TempFolder&) {
            return Stand{.under = nullptr,
                         .drive = std::make_unique<NvmeDrive>(std::make_unique<FakeNvme>(settings), options, "fake",
                                                              conformanceDepth),
                         .missing = ""};
          }};
}

}  // namespace

std::vector<Kind> nvmeKinds() {
  return {nvme("Nvme", {}),
          nvme("Nvme4096", {.blockExponent = 12}),
          nvme("NvmeShortTransfers", {.mdts = 1}),
          nvme("NvmeVerifyByRead", {}, {.verify = NvmeOptions::Verify::read}),
          nvme("NvmeDeallocating", {}, {.trim = NvmeOptions::Trim::deallocate}),
          nvme("NvmeProtection", {.metadataBytes = 8, .protectionType = 1}),
          nvme("NvmeProtectionTrimmed", {.metadataBytes = 8, .protectionType = 1},
               {.trim = NvmeOptions::Trim::writeZeroes}),
          nvme("NvmeSeparateProtection", {.metadataBytes = 8, .metadataExtended = false, .protectionType = 1}),
          nvme("NvmeSeparateMetadata", {.metadataBytes = 8, .metadataExtended = false}),
          nvme("NvmeProtectionByController", {.metadataBytes = 8, .protectionType = 1}, {.protection = false})};
}

}  // namespace corvane::host
