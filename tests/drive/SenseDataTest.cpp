#include "host/drive/SenseData.h"

#include <gtest/gtest.h>

#include <vector>

namespace corvane::host {
namespace {

std::vector<uint8_t> bytesOf(const DriveCompletion& completion) {
  return {completion.sense.begin(), completion.sense.begin() + completion.senseBytes};
}

TEST(SenseData, WithoutInformationIsFixedFormatAndNotValid) {
  DriveCompletion completion;
  completion.bytesTransferred = 512;
  setSense(completion, {0x5, 0x21, 0x03});
  EXPECT_EQ(completion.status, scsi_status::checkCondition);
  EXPECT_EQ(completion.bytesTransferred, 0U);
  EXPECT_EQ(bytesOf(completion),
            (std::vector<uint8_t>{0x70, 0, 5, 0, 0, 0, 0, 10, 0, 0, 0, 0, 0x21, 0x03, 0, 0, 0, 0}));
}

TEST(SenseData, InformationOf32BitsIsFixedFormat) {
  DriveCompletion completion;
  setSense(completion, {0xE, 0x1D, 0}, 0x12345678);
  EXPECT_EQ(bytesOf(completion),
            (std::vector<uint8_t>{0xF0, 0, 0xE, 0x12, 0x34, 0x56, 0x78, 10, 0, 0, 0, 0, 0x1D, 0, 0, 0, 0, 0}));
}

TEST(SenseData, LongerInformationIsDescriptorFormat) {
  DriveCompletion completion;
  setSense(completion, {0x3, 0x11, 0x01}, 0x0102030405060708);
  EXPECT_EQ(bytesOf(completion),
            (std::vector<uint8_t>{0x72, 3, 0x11, 0x01, 0, 0, 0, 12, 0x00, 0x0A, 0x80, 0, 1, 2, 3, 4, 5, 6, 7, 8}));
}

TEST(SenseData, NothingOfEarlierSenseDataStays) {
  DriveCompletion completion;
  setSense(completion, {0x3, 0x11, 0x01}, 0x0102030405060708);
  setSense(completion, {0x5, 0x20, 0x00});
  EXPECT_EQ(completion.sense[19], 0);
  EXPECT_EQ(completion.senseBytes, 18U);
}

TEST(SenseData, ARecoveredErrorIsACommandThatWasCarriedOut) {
  DriveCompletion completion;
  EXPECT_TRUE(isCarriedOut(completion));
  for (const std::optional<uint64_t> information :
       {std::optional<uint64_t>(), std::optional<uint64_t>(5), std::optional<uint64_t>(uint64_t{1} << 40)}) {
    setSense(completion, sense::recoveredRead, information);
    EXPECT_TRUE(isCarriedOut(completion));
    setSense(completion, sense::unrecoveredRead, information);
    EXPECT_FALSE(isCarriedOut(completion));
  }
  setSense(completion, sense::recoveredRead);
  completion.senseBytes = 7;
  EXPECT_FALSE(isCarriedOut(completion)) << "too short to say so";
  completion.status = scsi_status::aborted;
  completion.senseBytes = 18;
  EXPECT_FALSE(isCarriedOut(completion));
}

TEST(SenseData, OfAnUnknownFormatTellOfNoRecovery) {
  DriveCompletion completion;
  setSense(completion, sense::recoveredRead);
  for (const uint8_t format : {uint8_t{0x00}, uint8_t{0x6F}, uint8_t{0x74}, uint8_t{0x7F}}) {
    completion.sense[0] = format;
    completion.sense[1] = completion.sense[2] = sense_key::recoveredError;
    EXPECT_FALSE(isCarriedOut(completion)) << unsigned{format};
  }
}

TEST(SenseData, ThatCameAnnounceNoMoreThanCame) {
  std::vector<uint8_t> came{0x72, 3, 0x11, 0, 0, 0, 0, 244, 0x80, 200, 0, 0};
  DriveCompletion completion;
  takeSense(completion, came);
  EXPECT_EQ(completion.senseBytes, 12U);
  EXPECT_EQ(completion.sense[7], 4);
  came.resize(252, 0x55);
  takeSense(completion, came);
  EXPECT_EQ(completion.senseBytes, 64U);
  EXPECT_EQ(completion.sense[7], 56) << "as much as a completion holds";
  came[7] = 10;
  takeSense(completion, came);
  EXPECT_EQ(completion.sense[7], 10) << "less than came is the drive's affair";
}

TEST(SenseData, ThatCameLeaveNothingOfEarlierOnes) {
  DriveCompletion completion;
  setSense(completion, sense::unrecoveredRead, 5);
  takeSense(completion, std::vector<uint8_t>{0x70, 0, 3});
  EXPECT_EQ(completion.senseBytes, 3U);
  EXPECT_EQ(completion.sense[12], 0);
}

}  // namespace
}  // namespace corvane::host
