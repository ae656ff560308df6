#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstdio>

#include "tests/e2e/EndToEnd.h"
#include "tests/e2e/SpoilingDrive.h"

namespace corvane::host::e2e {
namespace {

using testing::HasSubstr;
using testing::StartsWith;

struct Case {
  std::string name;
  Spoil spoil;
  bool onFile;
};

void PrintTo(const Case& spoilt, std::ostream* out) { *out << spoilt.name; }

class SpoiltBlock : public testing::TestWithParam<Case> {
 protected:
  /// On a range so small that blocks are written again and again.
  RunResult run() {
    TestDefinition test = prepared({}, workspace_);
    const std::string path = workspace_ / "drive.img";
    test.driveAddresses = {GetParam().onFile ? "file:" + path + ",size=1m" : "sim:1m"};
    test.commandLimit = 20'000;
    test.seed = 5;
    return runTest(test, [&](std::unique_ptr<Drive> drive) {
      auto access = GetParam().onFile ? accessFile(path, drive->geometry().sectorBytes()) : accessSim(*drive);
      return std::make_unique<SpoilingDrive>(std::move(drive), std::move(access), GetParam().spoil, 1500, record_);
    });
  }

  std::string fileNamed(const DriveResult& drive, const std::string& part) const {
    for (const auto* names : {&drive.messages.reports, &drive.messages.dumps}) {
      for (const std::string& name : *names) {
        if (name.find(part) != std::string::npos) {
          return name;
        }
      }
    }
    return "";
  }

  Workspace workspace_;
  SpoilingDrive::Record record_;
};

std::string bytesOf(const std::vector<uint8_t>& bytes) { return {bytes.begin(), bytes.end()}; }

TEST_P(SpoiltBlock, IsFoundAndReported) {
  const RunResult result = run();
  ASSERT_TRUE(record_.done);
  ASSERT_EQ(result.status, RunStatus::dataFailure) << agentLines(result);
  const DriveResult& drive = result.drives.at(0);
  EXPECT_EQ(drive.agentStatus, -1046);

  const auto differs = std::mismatch(record_.before.begin(), record_.before.end(), record_.after.begin());
  uint64_t bytes = 0;
  for (size_t i = 0; i < record_.before.size(); ++i) {
    bytes += record_.before[i] != record_.after[i] ? 1U : 0U;
  }
  std::array<char, 120> announcement{};
  std::snprintf(announcement.data(), announcement.size(),
                "Miscompare Detected at LBA 0x%016llX, first_offset = %ld, num_bytes = %llu",
                static_cast<unsigned long long>(record_.lba), static_cast<long>(differs.first - record_.before.begin()),
                static_cast<unsigned long long>(bytes));
  EXPECT_THAT(drive.error, StartsWith(announcement.data()));

  ASSERT_EQ(result.findings.size(), 1U);
  EXPECT_EQ(result.findings[0].files.size(), 3U) << agentLines(result);
  EXPECT_THAT(contentOf(fileNamed(drive, "_trace_")),
              HasSubstr("Dump of all commands that include the miscompare LBA"));
  EXPECT_EQ(contentOf(fileNamed(drive, "_drive_")), bytesOf(record_.after));
  EXPECT_EQ(contentOf(fileNamed(drive, "_reference_")), bytesOf(record_.before));
}

INSTANTIATE_TEST_SUITE_P(Every, SpoiltBlock,
                         testing::Values(Case{"FlippedByteInMemory", Spoil::flippedByte, false},
                                         Case{"StaleBlockInMemory", Spoil::staleBlock, false},
                                         Case{"NeighboursDataInMemory", Spoil::neighboursData, false},
                                         Case{"ZeroedBlockInMemory", Spoil::zeroedBlock, false},
                                         Case{"FlippedByteOnAFile", Spoil::flippedByte, true},
                                         Case{"StaleBlockOnAFile", Spoil::staleBlock, true},
                                         Case{"NeighboursDataOnAFile", Spoil::neighboursData, true},
                                         Case{"ZeroedBlockOnAFile", Spoil::zeroedBlock, true}),
                         [](const auto& test) { return test.param.name; });

}  // namespace
}  // namespace corvane::host::e2e
