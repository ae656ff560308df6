#include "host/drive/scsi/ScsiIdentity.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/drive/scsi/OpenFakeUnit.h"

namespace corvane::tests {
namespace {

using host::Bytes;
using host::CommandKind;
namespace operation = host::scsi_operation;

using Change = std::function<void(FakeUnitTraits&)>;

/// What a reset says when the connection was lost and something changed before it was there again.
std::string complaintAfter(const Change& change, const FakeUnitTraits& traits = {}) {
  OpenFakeUnit opened(traits);
  opened.unit->broken = true;
  opened.unit->whenReset = [&] { change(opened.unit->traits); };
  try {
    opened.drive->reset();
  } catch (const host::DriveConnectionLost&) {
    return "the connection is lost";
  } catch (const host::DriveError& error) {
    EXPECT_EQ(opened.unit->changes, 0U);
    EXPECT_EQ(opened.unit->resets, 1U) << "it is given up at once";
    return error.what();
  }
  Bytes data(512);
  EXPECT_EQ(opened.commands->run(CommandKind::write, 5, 1, &data).status, host::scsi_status::good);
  return "accepted";
}

std::string otherUnit(const std::string& difference) {
  return "fake unit: it is another unit now (" + difference +
         "), so nothing is written to it; bring the unit back that the test began with, or begin a new test";
}

TEST(ScsiIdentity, TheSameUnitIsRecognised) {
  EXPECT_EQ(complaintAfter([](FakeUnitTraits&) {}), "accepted");
  EXPECT_EQ(complaintAfter([](FakeUnitTraits& unit) { unit.attentions = 4; }), "accepted");
  EXPECT_EQ(complaintAfter([](FakeUnitTraits& unit) { unit.notReadyAnswers = 2; }), "accepted");
}

TEST(ScsiIdentity, AnotherUnitIsRefused) {
  EXPECT_EQ(complaintAfter([](FakeUnitTraits& unit) { unit.vendor = "EMCA"; }),
            otherUnit("vendor 'EMCA', before 'ACME'"));
  EXPECT_EQ(complaintAfter([](FakeUnitTraits& unit) { unit.product = "Solid Sand"; }),
            otherUnit("product 'Solid Sand', before 'Spinning Rust'"));
  EXPECT_EQ(complaintAfter([](FakeUnitTraits& unit) { unit.serial = "SN43"; }),
            otherUnit("serial number 'SN43', before 'SN42'"));
  EXPECT_EQ(complaintAfter([](FakeUnitTraits& unit) { ++unit.name; }),
            otherUnit("world wide name 'naa.5001020304050608', before 'naa.5001020304050607'"));
  EXPECT_EQ(complaintAfter([](FakeUnitTraits& unit) { --unit.blocks; }), otherUnit("blocks '4095', before '4096'"));
  EXPECT_EQ(complaintAfter([](FakeUnitTraits& unit) { unit.blockBytes = 4096; }),
            otherUnit("bytes of a block '4096', before '512'"));
}

TEST(ScsiIdentity, PagesThatTheUnitNeverHadAreNotAskedFor) {
  FakeUnitTraits traits;
  traits.pages = {};
  EXPECT_EQ(complaintAfter([](FakeUnitTraits& unit) { unit.serial = "SN43"; }, traits), "accepted");
  EXPECT_EQ(complaintAfter([](FakeUnitTraits& unit) { ++unit.blocks; }, traits),
            otherUnit("blocks '4097', before '4096'"));
}

TEST(ScsiIdentity, AUnitThatDoesNotSayWhichOneItIsIsRefused) {
  const std::string rest = "), so nothing is written to it; see its own log";
  EXPECT_EQ(complaintAfter([](FakeUnitTraits& unit) { unit.refused = {operation::inquiry}; }),
            "fake unit: it does not say any more which unit it is (no answer to INQUIRY" + rest);
  EXPECT_EQ(complaintAfter([](FakeUnitTraits& unit) { unit.refused = {operation::serviceActionIn16}; }),
            "fake unit: it does not say any more which unit it is (no answer to READ CAPACITY(16)" + rest);
}

}  // namespace
}  // namespace corvane::tests
