#include "host/drive/nvme/NvmeStatus.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>

#include "tests/drive/CommandMaker.h"

namespace corvane::host {
namespace {

struct Row {
  uint16_t status;
  uint32_t scsiStatus;
  uint32_t sense;  ///< key, code, qualifier; 0: none
};

constexpr std::array rows{
    Row{0x000, 0x00, 0},        Row{0x001, 0x02, 0x052000}, Row{0x002, 0x02, 0x052400}, Row{0x004, 0x02, 0x030000},
    Row{0x005, 0x40, 0},        Row{0x006, 0x02, 0x044400}, Row{0x007, 0x40, 0},        Row{0x008, 0x40, 0},
    Row{0x009, 0x40, 0},        Row{0x00A, 0x40, 0},        Row{0x00B, 0x02, 0x052009}, Row{0x00C, 0x02, 0x052C00},
    Row{0x01C, 0x02, 0x020400}, Row{0x01D, 0x02, 0x02041B}, Row{0x020, 0x02, 0x072700}, Row{0x021, 0x08, 0},
    Row{0x080, 0x02, 0x052100}, Row{0x081, 0x02, 0x030000}, Row{0x082, 0x02, 0x020400}, Row{0x083, 0x18, 0},
    Row{0x084, 0x02, 0x020404}, Row{0x180, 0x02, 0x052400}, Row{0x181, 0x02, 0x052400}, Row{0x182, 0x02, 0x072700},
    Row{0x1B8, 0x02, 0x052105}, Row{0x1B9, 0x02, 0x052400}, Row{0x1BA, 0x02, 0x072708}, Row{0x1BB, 0x02, 0x072C0E},
    Row{0x1BC, 0x02, 0x052104}, Row{0x1BD, 0x02, 0x07550E}, Row{0x1BE, 0x02, 0x07550E}, Row{0x1BF, 0x02, 0x052400},
    Row{0x280, 0x02, 0x030300}, Row{0x281, 0x02, 0x031100}, Row{0x282, 0x02, 0x0B1001}, Row{0x283, 0x02, 0x0B1002},
    Row{0x284, 0x02, 0x0B1003}, Row{0x285, 0x02, 0x0E1D00}, Row{0x286, 0x02, 0x072002}, Row{0x287, 0x02, 0x052106}};

DriveCompletion completionOf(uint16_t status, std::optional<uint64_t> lba = std::nullopt) {
  DriveCompletion completion;
  completion.bytesTransferred = 512;
  completion.senseBytes = 7;
  setNvmeStatus(completion, status, lba);
  return completion;
}

TEST(NvmeStatus, EveryStatusIsTranslatedAsItsRowSays) {
  ASSERT_EQ(nvmeStatusMeanings().size(), rows.size());
  for (size_t i = 0; i < rows.size(); ++i) {
    EXPECT_EQ(nvmeStatusMeanings()[i].status, rows[i].status);
    const DriveCompletion completion = completionOf(rows[i].status);
    EXPECT_EQ(completion.status, rows[i].scsiStatus) << std::hex << rows[i].status;
    EXPECT_EQ(senseNumber(completion), rows[i].sense) << std::hex << rows[i].status;
    EXPECT_EQ(completion.bytesTransferred, 0U);
  }
}

TEST(NvmeStatus, TheRowsAreSortedAndNamed) {
  const auto meanings = nvmeStatusMeanings();
  EXPECT_TRUE(std::is_sorted(meanings.begin(), meanings.end(),
                             [](const auto& one, const auto& other) { return one.status < other.status; }));
  for (const NvmeStatusMeaning& meaning : meanings) {
    EXPECT_GT(std::string(meaning.name).size(), 4U);
  }
}

TEST(NvmeStatus, RetryDelayMoreAndDoNotRetryDoNotCount) {
  EXPECT_EQ(senseNumber(completionOf(0x7A81)), 0x031100U);
  EXPECT_EQ(completionOf(0x4000).status, scsi_status::good);
}

TEST(NvmeStatus, AnUnknownStatusIsAHardwareErrorAndOneOfThePathAnAbort) {
  for (const uint16_t unknown : std::array<uint16_t, 4>{0x0FF, 0x1FF, 0x288, 0x7C0}) {
    EXPECT_EQ(senseNumber(completionOf(unknown)), 0x044400U) << std::hex << unknown;
  }
  EXPECT_EQ(completionOf(0x370).status, scsi_status::aborted);
  EXPECT_EQ(completionOf(0x370).senseBytes, 0U);
}

TEST(NvmeStatus, ABlockIsNamedWithErrorsOfTheMediumOnly) {
  EXPECT_EQ(senseInformation(completionOf(0x281, 77)), 77U);
  EXPECT_EQ(senseInformation(completionOf(0x280, 78)), 78U);
  EXPECT_EQ(senseInformation(completionOf(0x285, 79)), 79U);
  EXPECT_EQ(senseInformation(completionOf(0x281)), ~uint64_t{0});
  EXPECT_EQ(senseInformation(completionOf(0x002, 77)), ~uint64_t{0});
}

TEST(NvmeStatus, ATextNamesTheStatusWithItsNumbers) {
  EXPECT_EQ(nvmeStatusText(0x4285), "Compare Failure (SCT 2h, SC 85h)");
  EXPECT_EQ(nvmeStatusText(0x7C1), "status (SCT 7h, SC C1h)");
}

}  // namespace
}  // namespace corvane::host
