#include "host/drive/block/BlockErrors.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>

#include "host/drive/DriveError.h"
#include "tests/drive/CommandMaker.h"

namespace corvane::host {
namespace {

using testing::AllOf;
using testing::HasSubstr;
using Operation = EngineRequest::Operation;

constexpr uint64_t deviceBlocks = 1000;
constexpr uint64_t noInformation = ~uint64_t{0};

/// An operation on LBA 100 to 107 that ended with an error.
FailedOperation failing(Operation operation, int error) {
  FailedOperation failed;
  failed.operation = operation;
  failed.command = operation == Operation::read ? CommandKind::read : CommandKind::write;
  failed.lba = 100;
  failed.endLba = 108;
  failed.error = error;
  return failed;
}

DriveCompletion answer(const FailedOperation& failed, uint64_t blocksNow = deviceBlocks) {
  DriveCompletion completion;
  answerBlockFailure(failed, blocksNow, "block device '/dev/x'", completion);
  return completion;
}

void expectAnswer(const DriveCompletion& completion, uint32_t sense, uint64_t information) {
  EXPECT_EQ(completion.status, scsi_status::checkCondition);
  EXPECT_EQ(senseNumber(completion), sense);
  EXPECT_EQ(senseInformation(completion), information);
}

std::string complaintAbout(int error, uint64_t blocksNow = deviceBlocks) {
  try {
    answer(failing(Operation::write, error), blocksNow);
  } catch (const DriveError& fault) {
    return fault.what();
  }
  return "answered";
}

TEST(BlockErrors, OfTheMediumNameTheBlock) {
  for (const int error : {EIO, ENODATA, EILSEQ, EUCLEAN}) {
    expectAnswer(answer(failing(Operation::read, error)), 0x031100, 100);
    for (const Operation operation :
         {Operation::write, Operation::punchHole, Operation::writeZeros, Operation::discard}) {
      expectAnswer(answer(failing(operation, error)), 0x030C00, 100);
    }
  }
}

TEST(BlockErrors, OfAFlushNameNoBlock) {
  expectAnswer(answer(failing(Operation::flush, EIO)), 0x044400, noInformation);
}

TEST(BlockErrors, OfTheTargetAreHardwareErrors) {
  expectAnswer(answer(failing(Operation::write, EREMOTEIO)), 0x044400, 100);
}

TEST(BlockErrors, BehindTheEndNameTheFirstBlockThatIsNotThere) {
  for (const int error : {0, ENOSPC, EIO, EINVAL}) {
    expectAnswer(answer(failing(Operation::write, error), 104), 0x052100, 104);
    expectAnswer(answer(failing(Operation::read, error), 50), 0x052100, 100);
  }
}

TEST(BlockErrors, BeforeTheEndAreNotTakenForThoseBehindIt) {
  expectAnswer(answer(failing(Operation::read, EIO), 108), 0x031100, 100);
  expectAnswer(answer(failing(Operation::read, 0), 108), 0x044400, 100);
  expectAnswer(answer(failing(Operation::write, ENOSPC), 108), 0x072707, 100);
}

TEST(BlockErrors, OfAFlushAreNeverBehindTheEnd) {
  expectAnswer(answer(failing(Operation::flush, EIO), 50), 0x044400, noInformation);
}

TEST(BlockErrors, OfCommandsThatTheDeviceDoesNotTakeAreIllegalRequests) {
  expectAnswer(answer(failing(Operation::punchHole, EOPNOTSUPP)), 0x052000, noInformation);
  expectAnswer(answer(failing(Operation::write, EINVAL)), 0x052400, noInformation);
}

TEST(BlockErrors, OfAProtectedDeviceSaySo) {
  expectAnswer(answer(failing(Operation::write, EPERM)), 0x072700, 100);
  expectAnswer(answer(failing(Operation::write, EROFS)), 0x072700, 100);
}

TEST(BlockErrors, OfTheWayToTheDeviceAreAbortedCommands) {
  for (const int error : {ENOLINK, ETIMEDOUT, ETIME}) {
    expectAnswer(answer(failing(Operation::read, error)), 0x0B4400, noInformation);
  }
}

TEST(BlockErrors, OfAReservationHaveAStatusOfTheirOwn) {
  const DriveCompletion completion = answer(failing(Operation::write, EBADE));
  EXPECT_EQ(completion.status, scsi_status::reservationConflict);
  EXPECT_EQ(completion.senseBytes, 0U);
}

TEST(BlockErrors, OfADeviceThatIsGoneEndTheTest) {
  for (const int error : {ENODEV, ENXIO, ENOMEDIUM, ESHUTDOWN}) {
    EXPECT_THAT(complaintAbout(error), HasSubstr("block device '/dev/x' is gone: "));
  }
  EXPECT_THAT(complaintAbout(EIO, 0), AllOf(HasSubstr("is gone"), HasSubstr("dmesg")));
  EXPECT_THAT(complaintAbout(0, 0), HasSubstr("is gone; see"));
}

TEST(BlockErrors, OfTheHostEndTheTestToo) {
  EXPECT_THAT(complaintAbout(ENOMEM), AllOf(HasSubstr("a write at LBA 100 failed"), HasSubstr("dmesg")));
}

}  // namespace
}  // namespace corvane::host
