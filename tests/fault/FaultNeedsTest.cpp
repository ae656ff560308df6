#include "host/fault/FaultNeeds.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace corvane::host {
namespace {

using enum CommandKind;

const DriveGeometry plain{.blocks = 1000, .blockSize = 512};
const DriveGeometry large{.blocks = 1000, .blockSize = 4096};
const DriveGeometry guarded{.blocks = 1000, .blockSize = 512, .protectionBytes = 8};

/// A test that gives every fault its opportunity.
FaultSurroundings generous() {
  return {.kinds = {write, writeAtomic, writeSame, trim, read, verify, syncCache, zoneReset, invalidate},
          .maxBlocks = 64,
          .maxAtomicBound = 8,
          .drives = 2,
          .powerCuts = true};
}

FaultSurroundings issuing(std::vector<CommandKind> kinds) {
  FaultSurroundings test = generous();
  test.kinds = std::move(kinds);
  return test;
}

std::string needs(const char* spec, const FaultSurroundings& test, const DriveGeometry& geometry = guarded) {
  return faultNeeds(parseFaultSpec(spec), test, geometry);
}

TEST(FaultNeeds, NothingIsMissingInATestWithEverything) {
  for (const FaultClassInfo& info : faultClasses()) {
    EXPECT_EQ(needs((std::string(info.name) + ":rate=1").c_str(), generous()), "") << info.name;
  }
}

TEST(FaultNeeds, TheDriveMustExist) {
  EXPECT_EQ(needs("lost-write:rate=1,drive=3", generous()),
            "fault 'lost-write:rate=1,drive=3' can never strike: the test has 2 drives; name one of them");
  EXPECT_EQ(needs("lost-write:rate=1,drive=2", generous()), "");
}

TEST(FaultNeeds, CrossTalkNeedsASecondDrive) {
  FaultSurroundings test = generous();
  test.drives = 1;
  EXPECT_EQ(needs("cross-talk:rate=1", test),
            "fault 'cross-talk:rate=1' can never strike: the test has one drive; name two");
}

TEST(FaultNeeds, CrossTalkNeverStrikesTheFirstDriveFromWhichItsDataCome) {
  EXPECT_EQ(needs("cross-talk:rate=1,drive=1", generous()),
            "fault 'cross-talk:rate=1,drive=1' can never strike: the foreign data come from the first drive; name "
            "another one");
  EXPECT_EQ(needs("cross-talk:rate=1,drive=2", generous()), "");
}

TEST(FaultNeeds, ProtectionDamageNeedsProtectionBytes) {
  EXPECT_EQ(
      needs("protection-damage:rate=1", generous(), plain),
      "fault 'protection-damage:rate=1' can never strike: the drive has no protection bytes; use one that has, as "
      "with pi=8");
}

TEST(FaultNeeds, ALyingFlushNeedsAPowerCut) {
  FaultSurroundings test = generous();
  test.powerCuts = false;
  EXPECT_EQ(needs("lying-flush:at=command:5", test),
            "fault 'lying-flush:at=command:5' can never strike: no power cut would show it; cut the power after "
            "flushes");
}

TEST(FaultNeeds, ItsKindOfCommandMustBeIssued) {
  EXPECT_EQ(needs("trim-ignored:rate=1", issuing({write, read})),
            "fault 'trim-ignored:rate=1' can never strike: the test issues no trim; select that kind of command");
  EXPECT_EQ(needs("torn-write:rate=1", issuing({read, writeSame})),
            "fault 'torn-write:rate=1' can never strike: the test issues no write or atomic; select that kind of "
            "command");
  EXPECT_EQ(needs("lost-write:rate=1", issuing({read, trim})),
            "fault 'lost-write:rate=1' can never strike: the test issues no write or atomic or writesame; select that "
            "kind of command");
  EXPECT_EQ(needs("lying-flush:rate=1", issuing({write})),
            "fault 'lying-flush:rate=1' can never strike: the test issues no sync; select that kind of command");
  EXPECT_EQ(needs("write-splice:rate=1", issuing({})),
            "fault 'write-splice:rate=1' can never strike: the test issues no write or writesame; select that kind of "
            "command");
  EXPECT_EQ(needs("lost-write:rate=1", issuing({writeSame})), "");
}

TEST(FaultNeeds, TransfersMustBeLongEnough) {
  FaultSurroundings test = generous();
  test.maxBlocks = 1;
  for (const char* spec : {"torn-write:rate=1", "torn-write-4k:rate=1", "atomic-tear:rate=1", "write-same-short:rate=1",
                           "swapped-block:rate=1"}) {
    EXPECT_EQ(
        needs(spec, test, plain),
        std::string("fault '") + spec + "' can never strike: the transfers are too short for it; allow longer ones");
  }
  EXPECT_EQ(needs("torn-write:rate=1", test, large), "");
  test.maxBlocks = 2;
  for (const char* spec :
       {"torn-write:rate=1", "atomic-tear:rate=1", "write-same-short:rate=1", "swapped-block:rate=1"}) {
    EXPECT_EQ(needs(spec, test, plain), "") << spec;
  }
}

TEST(FaultNeeds, TwoBlocksCanCrossABoundaryOf4k) {
  FaultSurroundings test = generous();
  test.maxBlocks = 2;
  EXPECT_EQ(needs("torn-write-4k:rate=1", test, plain), "");
  EXPECT_EQ(needs("torn-write-4k:rate=1", test, large), "");
}

TEST(FaultNeeds, AnAtomicTearNeedsSegmentsOfTwoBlocks) {
  FaultSurroundings test = generous();
  test.maxAtomicBound = 1;
  EXPECT_EQ(needs("atomic-tear:rate=1", test),
            "fault 'atomic-tear:rate=1' can never strike: the transfers are too short for it; allow longer ones");
}

}  // namespace
}  // namespace corvane::host
