#pragma once

#include <memory>
#include <string>

#include "host/drive/DriveError.h"
#include "host/drive/scsi/ScsiDrive.h"
#include "tests/drive/CommandMaker.h"
#include "tests/drive/scsi/FakeScsiUnit.h"

namespace corvane::tests {

constexpr uint32_t fakeDepth = 32;

/// A drive over a fake unit, with both at hand.
struct OpenFakeUnit {
  explicit OpenFakeUnit(const FakeUnitTraits& traits = {}, const host::ScsiDriveSettings& settings = {}) {
    auto transport = std::make_unique<FakeScsiUnit>(traits);
    unit = transport.get();
    drive = host::makeScsiDrive(std::move(transport), settings, fakeDepth);
    commands = std::make_unique<host::CommandMaker>(*drive);
    atOpen = std::exchange(unit->seen, {});
  }

  FakeScsiUnit* unit = nullptr;
  std::unique_ptr<host::Drive> drive;
  std::unique_ptr<host::CommandMaker> commands;
  std::vector<host::Cdb> atOpen;  ///< what was sent to learn about the unit
};

/// What opening such a unit complains about; "accepted" when it does not. Whatever it says, nothing may be written.
inline std::string unitComplaint(const FakeUnitTraits& traits, const host::ScsiDriveSettings& settings = {}) {
  try {
    const OpenFakeUnit opened(traits, settings);
    return opened.unit->changes == 0 ? "accepted" : "the medium was changed";
  } catch (const host::DriveError& error) {
    return error.what();
  }
}

}  // namespace corvane::tests
