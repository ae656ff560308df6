#include "host/cli/RecordedRun.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

#include "host/cli/RunJson.h"
#include "host/cli/UsageError.h"
#include "host/cli/Version.h"
#include "tests/cli/SampleRun.h"
#include "tests/support/TempFolder.h"

namespace corvane::host {
namespace {

using ::testing::HasSubstr;
using testing::SampleRun;
using tests::TempFolder;
using tests::writeFile;

class RecordedRunTest : public ::testing::Test {
 protected:
  std::string refusalOf(const std::string& text) const {
    writeFile(path_, text);
    try {
      readRecordedRun(path_);
    } catch (const UsageError& error) {
      return error.what();
    }
    return "accepted";
  }

  TempFolder folder_;
  std::string path_ = folder_ / "x.json";
};

TEST_F(RecordedRunTest, holdsTheTestAndTheFindingsOfARun) {
  SampleRun sample;
  sample.result.findings[0].lba = 77;
  writeFile(path_, runJson(sample.settings, sample.drives, {}, sample.result));
  const RecordedRun document = readRecordedRun(path_);
  EXPECT_EQ(document.version, programVersion());
  EXPECT_EQ(document.test.settings().test.seed, 42U);
  ASSERT_EQ(document.findings.size(), 1U);
  EXPECT_EQ(document.findings[0].drive, "b.img");
  EXPECT_EQ(document.findings[0].driveIndex, 1U);
  EXPECT_EQ(document.findings[0].agentStatus, -1046);
  EXPECT_EQ(document.findings[0].lba, 77U);
  EXPECT_EQ(document.findings[0].commandNumber, 1042U);
  EXPECT_EQ(document.findings[0].step, 1100U);
}

TEST_F(RecordedRunTest, aFindingMayLackItsLba) {
  const SampleRun sample;
  writeFile(path_, runJson(sample.settings, sample.drives, {}, sample.result));
  EXPECT_FALSE(readRecordedRun(path_).findings[0].lba);
}

TEST_F(RecordedRunTest, otherFilesAreRefused) {
  EXPECT_THAT(refusalOf("{"), HasSubstr("x.json' is no JSON; name the JSON document of a run"));
  EXPECT_THAT(refusalOf("[]"), HasSubstr("does not say which test was run"));
  EXPECT_THAT(refusalOf(R"({"version": "1"})"), HasSubstr("does not say which test was run"));
  EXPECT_THAT(refusalOf(R"({"format": 2, "test": {}})"), HasSubstr("is of format 2, and this program reads 1"));
  EXPECT_THAT(refusalOf(R"({"format": 1, "test": {}})"), HasSubstr("is not as a run leaves it"));
  EXPECT_THAT(refusalOf(R"({"format": 1, "test": {}, "version": "1", "findings": [{"drive": "a"}]})"),
              HasSubstr("is not as a run leaves it"));
  for (const char* finding :
       {R"("driveIndex": -1, "agentStatus": 0, "lba": 1)", R"("driveIndex": 0, "agentStatus": 0, "lba": 1e300)",
        R"("driveIndex": 0, "agentStatus": 0, "lba": 1, "step": -1)",
        R"("driveIndex": 4294967296, "agentStatus": 0, "lba": 1)",
        R"("driveIndex": 0, "agentStatus": 0.5, "lba": 1)"}) {
    const std::string text =
        R"({"format": 1, "test": {}, "version": "1", "findings": [{"drive": "a", )" + std::string(finding) + "}]}";
    EXPECT_THAT(refusalOf(text), HasSubstr("is not as a run leaves it")) << finding;
  }
  EXPECT_THAT(refusalOf(R"({"format": 1, "test": {"seed": 1}, "version": "1", "findings": []})"),
              HasSubstr("x.json: test.seed is not what a run writes"));
}

TEST_F(RecordedRunTest, valuesThatNestWithoutEndAreRefused) {
  const size_t deep = 200'000;
  const std::string nest = std::string(deep, '[') + std::string(deep, ']');
  EXPECT_THAT(refusalOf(R"({"format": )" + nest + R"(, "test": {}})"),
              HasSubstr("x.json' nests values more than 64 deep"));
}

}  // namespace
}  // namespace corvane::host
