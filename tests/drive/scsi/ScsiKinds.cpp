#include "host/drive/scsi/ScsiDrive.h"
#include "tests/drive/ConformanceKinds.h"
#include "tests/drive/scsi/FakeScsiUnit.h"

namespace corvane::host {
namespace {

/// What a SCSI unit may be like, each of which takes another way to the same content.
Kind scsi(const std::string& name, const std::function<void(tests::FakeUnitTraits&)>& adjust,
          const ScsiDriveSettings& settings = {}) {
  tests::FakeUnitTraits traits;
  traits.blocks = 16384;
  adjust(traits);
  return {name, [traits, settings](const tests::TempFolder&) {
            return Stand{
                .under = nullptr,
                .drive = makeScsiDrive(std::make_unique<tests::FakeScsiUnit>(traits), settings, conformanceDepth),
                .missing = ""};
          }};
}

}  // namespace

std::vector<Kind> scsiKinds() {
  using Settings = ScsiDriveSettings;
  using Traits = tests::FakeUnitTraits;
  return {scsi("Scsi", [](Traits&) {}),
          scsi("Scsi4096", [](Traits& unit) { unit.blockBytes = 4096; }),
          scsi("ScsiAtomic", [](Traits& unit) { unit.limits.mostAtomic = 16; }),
          scsi("ScsiLimited",
               [](Traits& unit) {
                 unit.limits.mostTransfer = 3;
                 unit.limits.mostWriteSame = 2;
                 unit.memoryAlignment = 4096;
               }),
          scsi("ScsiWithoutExtras",
               [](Traits& unit) {
                 unit.refused = {scsi_operation::verify16, scsi_operation::maintenanceIn};
                 unit.takesUnmapBit = false;
                 unit.forcesUnitAccess = false;
                 unit.pages = {};
               }),
          scsi("ScsiUnmap",
               [](Traits& unit) {
                 unit.refused = {scsi_operation::writeSame16};
                 unit.granule = unit.limits.unmapGranularity = 4;
                 unit.limits.unmapAlignment = 1;
               },
               {.trim = Settings::Trim::unmap, .verify = Settings::Verify::byHost}),
          scsi("ScsiUnnamedDifference",
               [](Traits& unit) {
                 unit.namesDifference = false;
                 unit.limits.mostTransfer = 4;
               }),
          scsi("ScsiAttentions", [](Traits& unit) { unit.attentions = 3; })};
}

}  // namespace corvane::host
